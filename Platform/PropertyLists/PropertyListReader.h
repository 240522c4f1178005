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

/// A position in an XML or JSON document. Lines and columns count from 1; columns count characters, not
/// bytes.
struct TextPosition {
    std::size_t line = 1;
    std::size_t column = 1;

    friend bool operator==(const TextPosition&, const TextPosition&) = default;
};

enum class PropertyListFormat { xml, binary, json };

/// Returns "XML property list", "binary property list" or "JSON".
std::string_view formatName(PropertyListFormat format);

/// The error of a document that cannot be read. The description is a sentence fragment without the position,
/// such as "a key appears twice in one dictionary (first on line 3)". It is logged publicly, so it never
/// quotes the document, which may contain secrets.
class PropertyListError : public ErrorException {
public:
    PropertyListError(std::string reason, std::optional<TextPosition> position = std::nullopt);
    /// Absent for binary documents, and for errors that concern the whole document.
    [[nodiscard]] std::optional<TextPosition> position() const { return m_position; }

private:
    std::optional<TextPosition> m_position;
};

/// The positions of the values in an XML or JSON document, by path: "base_domain" is the value of a top-level
/// key, "AllowedAppsBundleIdsForSSOExtension/2" the third element of its array. Deeper values have no entry.
struct PropertyListPlaces {
    struct Place {
        /// The position of the key; absent for array elements.
        std::optional<TextPosition> key;
        TextPosition value;
    };
    std::map<std::string, Place, std::less<>> byPath;
};

struct PropertyListDocument {
    PropertyList root;
    PropertyListFormat format = PropertyListFormat::json;
    /// Empty unless requested. Always empty for binary documents.
    PropertyListPlaces places;
};

enum class WithPlaces { no, yes };

/// The maximum size of a document.
inline constexpr std::size_t maximumPropertyListBytes = std::size_t{16} * 1024 * 1024;
/// The maximum nesting of arrays and dictionaries; the root container is level 1.
inline constexpr std::size_t maximumPropertyListDepth = 64;
/// The maximum number of values in a document. In a binary document, each reference to an object counts.
inline constexpr std::size_t maximumPropertyListValueCount = 1'000'000;

/// Reads an XML property list, a binary property list or a JSON object, which it distinguishes by content.
///
/// Threads: any.
/// Errors: throws `PropertyListError` if the document has none of these formats, is malformed, exceeds a
/// limit, is not valid UTF-8, or contains a key twice in one dictionary.
PropertyListDocument readPropertyList(std::string_view bytes, WithPlaces withPlaces = WithPlaces::no);

/// Returns `value` as a binary property list (version 00), the storage format of containers.
Data writeBinaryPropertyList(const PropertyList& value);

} // namespace Platform::PropertyLists
