#pragma once

#include "Platform/Encoding.h"
#include "Platform/PropertyLists/PropertyListReader.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The common parts of the three format readers. For PropertyListReader.cpp and the readers only.

namespace Platform::PropertyLists {

/// White space in both XML and JSON.
inline constexpr std::string_view textBlanks = " \t\r\n";

std::string tooDeepReason();
std::string tooManyValuesReason();

/// The state of reading one XML or JSON document: converts offsets to positions, counts values, and records
/// the positions of values if requested.
class TextDocument {
public:
    TextDocument(std::string_view text, WithPlaces withPlaces) : m_text(text), m_withPlaces(withPlaces) {}

    [[nodiscard]] std::string_view text() const { return m_text; }

    /// Continues from the previous call's offset, so ascending offsets are cheap.
    TextPosition positionOf(std::size_t offset);

    /// Throws `PropertyListError` with the position of `offset`.
    [[noreturn]] void fail(std::string reason, std::size_t offset);

    /// Counts one value; throws if the document exceeds the limit.
    void countValue(std::size_t offset);

    /// Records the position of a value. `path` is as in `PropertyListPlaces`.
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

/// A dictionary while it is read from an XML or JSON document. Rejects duplicate keys.
class TextDictionary {
public:
    /// Inserts `key` with a null value and returns a reference to that value, which later insertions do not
    /// invalidate. Throws if the dictionary already contains the key.
    PropertyList& insert(std::string key, std::size_t offset, TextDocument& document);

    PropertyList::Dictionary take() { return std::move(m_values); }

private:
    PropertyList::Dictionary m_values;
    std::vector<std::pair<const std::string*, std::size_t>> m_keyOffsets;
};

// The readers of the three formats. Text must be valid UTF-8 without a byte order mark; the size has been
// checked.
PropertyListDocument readXMLPropertyList(std::string_view text, WithPlaces withPlaces);
PropertyListDocument readJSONPropertyList(std::string_view text, WithPlaces withPlaces);
PropertyListDocument readBinaryPropertyList(std::string_view bytes);

} // namespace Platform::PropertyLists
