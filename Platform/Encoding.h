#pragma once

#include "Platform/Data.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Platform {

struct DecodedCharacter {
    char32_t codePoint = 0;
    /// In bytes.
    std::size_t length = 0;
};

/// The first character of `text`, which is not empty; absent where it is not valid UTF-8. Source: RFC 3629.
std::optional<DecodedCharacter> decodeUTF8(std::string_view text);

/// The same, with a byte that is not valid UTF-8 for a character of its own number.
DecodedCharacter characterOrByte(std::string_view text);

void appendUTF8(std::string& out, char32_t codePoint);

/// Whether the character is for devices rather than readers (Unicode category Cc): it may end a line or steer
/// a terminal.
bool isControlCharacter(char32_t codePoint);

/// Whether the character can reorder the text around it: the explicit bidirectional controls and the marks.
/// Source: Unicode Standard Annex #9, section 2.
bool isBidirectionalControl(char32_t codePoint);

/// Whether the character must not reach a terminal, a log line or a notification as it is: a control
/// character, a line or paragraph separator, or a bidirectional control.
bool isUnprintable(char32_t codePoint);

enum class LineBreaks { kept, replaced };

/// `text` with everything unprintable escaped: "\n", "\r", "\t", "\x1b" or "\u202e"; a byte that is not
/// valid UTF-8 becomes "\xff". The result is valid UTF-8 and, unless line breaks are kept, one line.
std::string printable(std::string_view text, LineBreaks lineBreaks = LineBreaks::replaced);

/// `text` as a notification may show it, where escapes would only puzzle the reader: everything unprintable
/// is left out, tabs and replaced line breaks become blanks, and U+FFFD stands for what is not valid UTF-8 or
/// never a character.
std::string plainText(std::string_view text, LineBreaks lineBreaks);

/// Whether the byte goes on with a character that another one began.
bool isContinuationByte(char byte);

/// Whether all of `bytes` is valid UTF-8.
bool isUTF8(std::string_view bytes);

/// Two lower-case digits per byte, in order, without separators.
std::string hexadecimalText(const Data& bytes);

/// The forms of RFC 4648: of section 4, with padding, and of section 5, for URLs, without.
enum class Base64Form { standard, url };

/// Without line breaks.
std::string base64Text(std::span<const std::byte> bytes, Base64Form form);
inline std::string base64Text(std::string_view bytes)
{
    return base64Text(std::as_bytes(std::span(bytes)), Base64Form::standard);
}

/// The bytes that base64 in its form for URLs stands for. Absent unless `text` is what `base64Text` writes
/// for them: no padding, no other characters, no bits that are left over and set.
std::optional<Data> decodeBase64URL(std::string_view text);

} // namespace Platform
