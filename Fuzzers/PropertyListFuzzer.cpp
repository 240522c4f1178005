// Fuzzes the parsers of policy files: XML and binary property lists, and JSON.

#include "Fuzzers/Fuzzing.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Tests/Fakes/Bytes.h"
#include "Tools/qvctl/Output.h"

using namespace Platform::PropertyLists;
using Fuzzers::isSame, Fuzzers::Numbers, Fuzzers::require;

namespace {

/// Returns the number of characters in each line of `text`.
std::vector<std::size_t> lineLengths(std::string_view text)
{
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    std::vector<std::size_t> lengths{0};
    for (const char byte : text) {
        if (byte == '\n')
            lengths.push_back(0);
        else if ((static_cast<unsigned char>(byte) & 0xC0U) != 0x80U)
            ++lengths.back();
    }
    return lengths;
}

/// A position may be at the end of a line.
void requireWithin(const std::vector<std::size_t>& lengths, TextPosition position)
{
    require(position.line >= 1 && position.line <= lengths.size() && position.column >= 1 &&
                position.column <= lengths[position.line - 1] + 1,
            "a position is inside the document");
}

/// Absent after an error.
std::optional<PropertyListDocument> read(std::string_view bytes, WithPlaces withPlaces)
{
    return Fuzzers::accepted<PropertyListError>([&] {
        try {
            return readPropertyList(bytes, withPlaces);
        } catch (const PropertyListError& error) {
            Fuzzers::requireNoCanary(error.description());
            if (error.position())
                requireWithin(lineLengths(bytes), *error.position());
            throw;
        }
    });
}

void examinePlaces(const PropertyListDocument& read, const std::vector<std::size_t>& lengths)
{
    const auto* dictionary = read.root.dictionary();
    for (const auto& [path, place] : read.places.byPath) {
        requireWithin(lengths, place.value);
        if (!place.key)
            continue;
        requireWithin(lengths, *place.key);
        require(dictionary != nullptr && dictionary->contains(path), "a position belongs to a key");
    }
    if (dictionary == nullptr || read.format == PropertyListFormat::binary)
        return;
    for (const auto& entry : *dictionary)
        require(read.places.byPath.contains(entry.first), "every key has a position");
}

void examineWriters(const PropertyListDocument& read)
{
    const Platform::Data written = writeBinaryPropertyList(read.root);
    require(isSame(readPropertyList(textOf(written)).root, read.root, Numbers::exactly),
            "a value survives writing as a binary property list");
    require(!Fuzzers::holdsControlCharacter(Qvctl::displayText(read.root)),
            "displayed text contains no control characters");
    if (read.format != PropertyListFormat::json)
        return;
    const std::string json = Qvctl::prettyJSON(Qvctl::jsonValue(read.root));
    require(isSame(readPropertyList(json).root, read.root, Numbers::byValue),
            "a value survives writing as JSON");
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    read(withCanary(input), WithPlaces::yes);
    const auto plain = read(input, WithPlaces::no);
    const auto placed = read(input, WithPlaces::yes);
    require(plain.has_value() == placed.has_value(), "both reads fail alike");
    if (!plain)
        return;
    require(plain->format == placed->format && isSame(plain->root, placed->root, Numbers::exactly),
            "both reads return the same value");
    require(plain->places.byPath.empty(), "positions are collected only on request");
    examinePlaces(*placed, lineLengths(input));
    examineWriters(*plain);
}
