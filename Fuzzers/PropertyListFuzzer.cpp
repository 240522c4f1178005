// Fuzzes the parsers of policy files: XML and binary property lists, and JSON.

#include "Fuzzers/Fuzzing.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Tests/Fakes/Bytes.h"
#include "Tools/qvctl/Output.h"

#include <algorithm>
#include <optional>
#include <string>
#include <variant>
#include <vector>

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

struct Refusal {
    std::string reason;
    std::optional<TextPosition> position;

    friend bool operator==(const Refusal&, const Refusal&) = default;
};
using Reading = std::variant<Refusal, PropertyListDocument>;

Reading read(std::string_view bytes, WithPlaces withPlaces)
{
    try {
        return readPropertyList(bytes, withPlaces);
    } catch (const PropertyListError& error) {
        return Refusal{error.description(), error.position()};
    }
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

void examineErrorMessage(std::string_view input)
{
    const Reading reading = read(Fuzzers::withCanary(input), WithPlaces::yes);
    if (const auto* refusal = std::get_if<Refusal>(&reading))
        Fuzzers::requireNoCanary(refusal->reason);
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    examineErrorMessage(input);
    const auto lengths = lineLengths(input);
    const Reading plain = read(input, WithPlaces::no);
    const Reading placed = read(input, WithPlaces::yes);
    if (const auto* refusal = std::get_if<Refusal>(&plain)) {
        require(!refusal->reason.empty() && !holdsControlCharacter(refusal->reason),
                "an error has a reason of one line");
        if (refusal->position)
            requireWithin(lengths, *refusal->position);
        require(std::holds_alternative<Refusal>(placed) && std::get<Refusal>(placed) == *refusal,
                "both reads fail alike");
        return;
    }
    const auto& first = std::get<PropertyListDocument>(plain);
    const auto* second = std::get_if<PropertyListDocument>(&placed);
    require(second != nullptr && second->format == first.format &&
                isSame(first.root, second->root, Numbers::exactly),
            "both reads return the same value");
    require(first.places.byPath.empty(), "positions are collected only on request");
    examinePlaces(*second, lengths);
    examineWriters(first);
}
