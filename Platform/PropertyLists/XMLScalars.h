#pragma once

#include "Platform/PropertyList.h"

#include <optional>
#include <string_view>

// Parsers for the content of the XML elements with a single value, without the surrounding white space. The
// result is absent if the content is invalid.

namespace Platform::PropertyLists {

/// Returns `text` without leading and trailing white space.
std::string_view trimmed(std::string_view text);

/// Parses a decimal integer, or a hexadecimal one after "0x", with an optional sign. Accepts the
/// ranges of signed and unsigned 64-bit integers.
std::optional<PropertyList> parseInteger(std::string_view text);

/// Parses a decimal number with optional sign, fraction and exponent, or "inf", "infinity" or "nan" in any
/// case.
std::optional<PropertyList> parseReal(std::string_view text);

/// Parses an existing date and time of the form "2001-12-31T23:59:59Z".
std::optional<PropertyList> parseDate(std::string_view text);

/// Parses Base64 with padding; white space is ignored.
std::optional<PropertyList> parseData(std::string_view text);

} // namespace Platform::PropertyLists
