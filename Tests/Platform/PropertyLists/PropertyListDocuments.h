#pragma once

#include "Platform/PropertyList.h"

#include <cstddef>

// Hand-made property lists, valid and invalid.

inline std::string xml(const std::string& body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist>\n<plist>" + body + "</plist>\n";
}

inline std::string repeated(std::size_t count, const std::string& text)
{
    std::string out;
    for (std::size_t index = 0; index < count; ++index)
        out += text;
    return out;
}

inline std::string bigEndian(std::uint64_t number, std::size_t bytes)
{
    std::string out;
    while (bytes-- > 0)
        out += static_cast<char>(number >> (8 * bytes));
    return out;
}

/// Returns a binary document of `objects` with two-byte references; the first object is the root.
inline std::string binary(const std::vector<std::string>& objects)
{
    std::string out = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += bigEndian(out.size(), 4);
        out += object;
    }
    const std::size_t table = out.size();
    return out + offsets + std::string(6, '\0') + "\4\2" + bigEndian(objects.size(), 8) + bigEndian(0, 8) +
           bigEndian(table, 8);
}

/// Returns a binary document whose objects, except the last, are arrays of `width` references to the next.
inline std::string binaryChain(std::size_t levels, std::size_t width)
{
    std::vector<std::string> objects;
    for (std::size_t index = 1; index <= levels; ++index)
        objects.push_back(static_cast<char>(0xA0 + width) + repeated(width, bigEndian(index, 2)));
    objects.emplace_back("\x09");
    return binary(objects);
}

inline Platform::PropertyList nestedArrays(std::size_t levels)
{
    Platform::PropertyList value(true);
    for (std::size_t level = 0; level < levels; ++level)
        value = Platform::PropertyList::Array{value};
    return value;
}
