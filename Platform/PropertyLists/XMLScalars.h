#pragma once

#include "Platform/PropertyList.h"

#include <optional>
#include <string_view>

// The contents of the XML elements that hold one value, without the white space around them. Each parser
// answers nothing for a text that its element may not hold.

namespace Platform::PropertyLists {

/// `text` without the white space at both ends.
std::string_view trimmed(std::string_view text);

/// Decimal, or hexadecimal after "0x", with an optional sign; from the least signed to the greatest unsigned
/// 64-bit value.
std::optional<PropertyList> parseInteger(std::string_view text);

/// Decimal with optional sign, fraction and exponent, or a spelling of infinity or of no number at all.
std::optional<PropertyList> parseReal(std::string_view text);

/// "2001-12-31T23:59:59Z", a day and a time that exist.
std::optional<PropertyList> parseDate(std::string_view text);

/// Base64 with padding and any white space.
std::optional<PropertyList> parseData(std::string_view text);

} // namespace Platform::PropertyLists
