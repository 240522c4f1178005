#include "Platform/PropertyLists/PropertyListFormats.h"

#include <algorithm>
#include <bit>

namespace Platform::PropertyLists {

namespace {

/// Returns the smallest size of 1, 2, 4 or 8 bytes that can hold `number`.
std::size_t bytesFor(std::uint64_t number)
{
    std::size_t bytes = 1;
    while (bytes < 8 && (number >> (8 * bytes)) != 0)
        bytes *= 2;
    return bytes;
}

/// Converts UTF-8 to UTF-16. Each invalid byte, which no reader lets through, becomes a replacement
/// character.
std::u16string utf16(std::string_view text)
{
    std::u16string units;
    while (!text.empty()) {
        const DecodedCharacter character = decodeUTF8(text).value_or(DecodedCharacter{0xFFFD, 1});
        if (character.codePoint < 0x10000) {
            units += static_cast<char16_t>(character.codePoint);
        } else {
            const char32_t offset = character.codePoint - 0x10000;
            units += static_cast<char16_t>(0xD800 + (offset >> 10U));
            units += static_cast<char16_t>(0xDC00 + (offset & 0x3FFU));
        }
        text.remove_prefix(character.length);
    }
    return units;
}

/// Collects all objects breadth-first, without recursion, then writes them in that order.
class BinaryWriter {
public:
    explicit BinaryWriter(const PropertyList& root);

    Data write();

private:
    /// Either a string, such as a key, or any other value.
    struct Object {
        const PropertyList* value = nullptr;
        const std::string* text = nullptr;
    };

    std::size_t add(const PropertyList& value);
    std::size_t addText(const std::string& text);
    void addMembers(const PropertyList& value);

    void writeObject(const Object& object);
    void writeValue(const PropertyList& value);
    void writeText(std::string_view text);
    void writeReferences(std::size_t count);
    void writeInteger(std::int64_t value);
    void writeHead(unsigned type, std::size_t count);
    void writeMarker(unsigned type, std::size_t low);
    void writeNumber(std::uint64_t number, std::size_t bytes);

    std::vector<Object> m_objects;
    /// The index of each string. Equal strings share one object, since dictionaries in an array repeat their
    /// keys.
    std::map<std::string_view, std::size_t> m_texts;
    /// The members of all containers, in the order of `m_objects`.
    std::vector<std::size_t> m_references;
    std::size_t m_writtenReferenceCount = 0;
    std::size_t m_referenceBytes = 1;
    Data m_out;
};

BinaryWriter::BinaryWriter(const PropertyList& root)
{
    add(root);
    // The loop appends to the list.
    std::size_t visitedCount = 0;
    while (visitedCount < m_objects.size())
        if (const PropertyList* value = m_objects[visitedCount++].value)
            addMembers(*value);
    m_referenceBytes = bytesFor(m_objects.size() - 1);
}

std::size_t BinaryWriter::add(const PropertyList& value)
{
    if (const std::string* text = value.text())
        return addText(*text);
    m_objects.push_back({&value, nullptr});
    return m_objects.size() - 1;
}

std::size_t BinaryWriter::addText(const std::string& text)
{
    const auto [entry, isNew] = m_texts.try_emplace(text, m_objects.size());
    if (isNew)
        m_objects.push_back({nullptr, &text});
    return entry->second;
}

void BinaryWriter::addMembers(const PropertyList& value)
{
    if (const auto* array = value.array()) {
        for (const PropertyList& element : *array)
            m_references.push_back(add(element));
    } else if (const auto* dictionary = value.dictionary()) {
        for (const auto& entry : *dictionary)
            m_references.push_back(addText(entry.first));
        for (const auto& entry : *dictionary)
            m_references.push_back(add(entry.second));
    }
}

Data BinaryWriter::write()
{
    for (const char character : std::string_view("bplist00"))
        m_out.push_back(static_cast<std::byte>(character));
    std::vector<std::size_t> offsets;
    offsets.reserve(m_objects.size());
    for (const Object& object : m_objects) {
        offsets.push_back(m_out.size());
        writeObject(object);
    }
    const std::size_t tableOffset = m_out.size();
    const std::size_t offsetBytes = bytesFor(tableOffset);
    for (const std::size_t offset : offsets)
        writeNumber(offset, offsetBytes);

    constexpr std::size_t unusedTrailerBytes = 6;
    m_out.resize(m_out.size() + unusedTrailerBytes);
    writeNumber(offsetBytes, 1);
    writeNumber(m_referenceBytes, 1);
    writeNumber(m_objects.size(), 8);
    writeNumber(0, 8); // the root is the first object
    writeNumber(tableOffset, 8);
    return std::move(m_out);
}

void BinaryWriter::writeObject(const Object& object)
{
    if (object.text != nullptr)
        writeText(*object.text);
    else
        writeValue(*object.value);
}

void BinaryWriter::writeValue(const PropertyList& value)
{
    if (const auto* integer = value.integer()) {
        writeInteger(*integer);
    } else if (const auto* largeInteger = value.largeInteger()) {
        writeMarker(0x1, 4);
        writeNumber(0, 8);
        writeNumber(*largeInteger, 8);
    } else if (const auto* real = value.real()) {
        writeMarker(0x2, 3);
        writeNumber(std::bit_cast<std::uint64_t>(*real), 8);
    } else if (const auto* boolean = value.boolean()) {
        writeMarker(0x0, *boolean ? 0x9 : 0x8);
    } else if (const auto* date = value.date()) {
        writeMarker(0x3, 3);
        writeNumber(std::bit_cast<std::uint64_t>(date->secondsSinceReferenceDate), 8);
    } else if (const auto* data = value.data()) {
        writeHead(0x4, data->size());
        m_out.insert(m_out.end(), data->begin(), data->end());
    } else if (const auto* array = value.array()) {
        writeHead(0xA, array->size());
        writeReferences(array->size());
    } else if (const auto* dictionary = value.dictionary()) {
        writeHead(0xD, dictionary->size());
        writeReferences(2 * dictionary->size());
    } else {
        writeMarker(0x0, 0x0);
    }
}

void BinaryWriter::writeText(std::string_view text)
{
    const bool isASCII =
        std::ranges::all_of(text, [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
    if (isASCII) {
        writeHead(0x5, text.size());
        for (const char byte : text)
            m_out.push_back(static_cast<std::byte>(byte));
        return;
    }
    const std::u16string units = utf16(text);
    writeHead(0x6, units.size());
    for (const char16_t unit : units)
        writeNumber(unit, 2);
}

void BinaryWriter::writeReferences(std::size_t count)
{
    for (const std::size_t end = m_writtenReferenceCount + count; m_writtenReferenceCount < end;
         ++m_writtenReferenceCount)
        writeNumber(m_references[m_writtenReferenceCount], m_referenceBytes);
}

// Integers of fewer than eight bytes are unsigned, so a negative one always takes eight.
void BinaryWriter::writeInteger(std::int64_t value)
{
    const auto bits = static_cast<std::uint64_t>(value);
    const std::size_t bytes = bytesFor(bits);
    writeMarker(0x1, static_cast<std::size_t>(std::countr_zero(bytes)));
    writeNumber(bits, bytes);
}

void BinaryWriter::writeHead(unsigned type, std::size_t count)
{
    writeMarker(type, std::min<std::size_t>(count, 0xF));
    if (count >= 0xF)
        writeInteger(static_cast<std::int64_t>(count));
}

void BinaryWriter::writeMarker(unsigned type, std::size_t low)
{
    m_out.push_back(static_cast<std::byte>((type << 4U) | low));
}

void BinaryWriter::writeNumber(std::uint64_t number, std::size_t bytes)
{
    while (bytes-- > 0)
        m_out.push_back(static_cast<std::byte>((number >> (8 * bytes)) & 0xFFU));
}

} // namespace

Data writeBinaryPropertyList(const PropertyList& value)
{
    return BinaryWriter(value).write();
}

} // namespace Platform::PropertyLists
