#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace Platform::PropertyLists {

/// A place in a text document, both counted from 1; columns count characters, not bytes.
struct TextPosition {
    std::size_t line = 1;
    std::size_t column = 1;

    friend bool operator==(const TextPosition&, const TextPosition&) = default;
};

enum class PropertyListFormat { xml, binary, json };

/// "XML property list", "binary property list", "JSON".
std::string_view formatName(PropertyListFormat format);

/// Why bytes are not a property list. The description is a sentence fragment without the position, such as "a
/// key appears twice in one dictionary (first on line 3)". It never quotes the document, which may hold
/// secrets: descriptions are logged publicly.
class PropertyListError : public ErrorException {
public:
    PropertyListError(std::string reason, std::optional<TextPosition> position = std::nullopt);
    /// Absent where the format has no lines.
    [[nodiscard]] std::optional<TextPosition> position() const { return m_position; }

private:
    std::optional<TextPosition> m_position;
};

/// Where the parts of a text document stand, by path: "base_domain" for the value of a top-level key,
/// "AllowedAppsBundleIdsForSSOExtension/2" for the third element of its array. Deeper values have no entry.
struct PropertyListPlaces {
    struct Place {
        /// Where the key is written; absent for array elements.
        std::optional<TextPosition> key;
        TextPosition value;
    };
    std::map<std::string, Place, std::less<>> byPath;
};

struct PropertyListDocument {
    PropertyList root;
    PropertyListFormat format = PropertyListFormat::json;
    /// Empty unless asked for, and for binary documents.
    PropertyListPlaces places;
};

enum class WithPlaces { no, yes };

/// Largest document read, in bytes.
inline constexpr std::size_t maximumPropertyListBytes = std::size_t{16} * 1024 * 1024;
/// Deepest nesting of arrays and dictionaries; the root container counts as 1.
inline constexpr std::size_t maximumPropertyListDepth = 64;
/// Most values in one document; in a binary one an object counts each time it is referred to.
inline constexpr std::size_t maximumPropertyListValueCount = 1'000'000;

/// Reads an XML property list, a binary property list or a JSON object; the content decides which.
///
/// Threads: any. Errors: throws `PropertyListError`, and nothing else, for bytes that are none of the three,
/// break a limit, are not valid UTF-8, or name a key of one dictionary twice.
PropertyListDocument readPropertyList(std::string_view bytes, WithPlaces withPlaces = WithPlaces::no);

/// `value` as a binary property list (version 00), the form in which containers are stored.
Data writeBinaryPropertyList(const PropertyList& value);

} // namespace Platform::PropertyLists
