#pragma once

#include <string_view>

namespace Core {

/// `text`, UTF-8, without the white space and newlines at its ends: the characters of the Unicode categories
/// Z*, U+0009 to U+000D and U+0085.
std::string_view trimmed(std::string_view text);

/// Whether the character is a straight or typographic quotation mark.
bool isQuotationMark(char32_t character);

/// Whether `text` has a double quotation mark anywhere, or a single one at both ends. An apostrophe is none.
bool hasQuotationMarks(std::string_view text);

/// Whether `text` begins with `prefix` when the case of ASCII letters does not count.
bool hasPrefixIgnoringCase(std::string_view text, std::string_view prefix);

} // namespace Core
