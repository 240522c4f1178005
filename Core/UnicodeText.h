#pragma once

#include <string_view>

namespace Core {

/// Returns `text` (UTF-8) without white space at both ends: Unicode categories Z*, U+0009 to U+000D, U+0085.
std::string_view trimmed(std::string_view text);

/// Returns whether `character` is a straight or typographic quotation mark.
bool isQuotationMark(char32_t character);

/// Returns whether `text` contains a double quotation mark, or a single one at both ends.
bool hasQuotationMarks(std::string_view text);

/// Returns whether `text` starts with `prefix`, ignoring the case of ASCII letters.
bool hasPrefixIgnoringCase(std::string_view text, std::string_view prefix);

} // namespace Core
