#pragma once

#include "Platform/Encoding.h"
#include "Platform/PropertyLists/PropertyListReader.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What the readers of the three formats share. For PropertyListReader.cpp and the readers only.

namespace Platform::PropertyLists {

/// White space to XML and JSON alike.
inline constexpr std::string_view textBlanks = " \t\r\n";

std::string tooDeepReason();
std::string tooManyValuesReason();

/// A text under reading: turns offsets into positions, counts values and collects the places asked for.
class TextDocument {
public:
    TextDocument(std::string_view text, WithPlaces withPlaces) : m_text(text), m_withPlaces(withPlaces) {}

    [[nodiscard]] std::string_view text() const { return m_text; }

    /// Costs only the distance from the last question as long as offsets rise.
    TextPosition positionOf(std::size_t offset);

    /// Throws `PropertyListError` for the place at `offset`.
    [[noreturn]] void fail(std::string reason, std::size_t offset);

    /// Throws unless one more value fits the limit.
    void countValue(std::size_t offset);

    void notePlace(std::string_view path, std::optional<std::size_t> keyOffset, std::size_t valueOffset);

    PropertyListPlaces takePlaces() { return std::move(m_places); }

private:
    std::string_view m_text;
    WithPlaces m_withPlaces;
    PropertyListPlaces m_places;
    std::size_t m_valueCount = 0;
    std::size_t m_measuredBytes = 0;
    TextPosition m_measured;
};

/// The dictionary of a text under construction. Refuses a key that it has already.
class TextDictionary {
public:
    /// The null value of a new key, to be filled in; it stays where it is while further keys come. Throws for
    /// a key that appears twice.
    PropertyList& insert(std::string key, std::size_t offset, TextDocument& document);

    PropertyList::Dictionary take() { return std::move(m_values); }

private:
    PropertyList::Dictionary m_values;
    std::vector<std::pair<const std::string*, std::size_t>> m_keyOffsets;
};

// One reader per format. The texts are valid UTF-8 without byte order mark, and every size is within the
// limit.
PropertyListDocument readXMLPropertyList(std::string_view text, WithPlaces withPlaces);
PropertyListDocument readJSONPropertyList(std::string_view text, WithPlaces withPlaces);
PropertyListDocument readBinaryPropertyList(std::string_view bytes);

} // namespace Platform::PropertyLists
