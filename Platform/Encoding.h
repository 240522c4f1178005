#pragma once

#include "Platform/Data.h"

#include <array>
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

/// Decodes the first character of `text`, which must not be empty. Absent if it is not valid UTF-8. Source:
/// RFC 3629.
std::optional<DecodedCharacter> decodeUTF8(std::string_view text);

/// Decodes the first character like `decodeUTF8`, but returns an invalid byte as a character of that value.
DecodedCharacter characterOrByte(std::string_view text);

void appendUTF8(std::string& out, char32_t codePoint);

/// Returns whether the character is a control character (Unicode category Cc), which can end a line or
/// control a terminal.
bool isControlCharacter(char32_t codePoint);

/// Returns whether the character can reorder the text around it. Source: Unicode Standard Annex #9,
/// section 2.
bool isBidirectionalControl(char32_t codePoint);

/// Returns whether the character must not reach a terminal, a log line or a notification unescaped: a control
/// character, a line or paragraph separator, or a bidirectional control.
bool isUnprintable(char32_t codePoint);

enum class LineBreaks { kept, replaced };

/// Returns `text` with unprintable characters escaped as "\n", "\r", "\t", "\x1b" or "\u202e", and invalid
/// UTF-8 bytes as "\xff". The result is valid UTF-8 and, unless line breaks are kept, a single line.
std::string printable(std::string_view text, LineBreaks lineBreaks = LineBreaks::replaced);

/// Returns `text` for display in a notification, without escapes: unprintable characters are removed, tabs
/// and replaced line breaks become spaces, and invalid UTF-8 and noncharacters become U+FFFD.
std::string plainText(std::string_view text, LineBreaks lineBreaks);

/// Returns whether the byte is a continuation byte of a UTF-8 sequence.
bool isContinuationByte(char byte);

/// Returns whether `bytes` is valid UTF-8.
bool isUTF8(std::string_view bytes);

/// Returns two lowercase hexadecimal digits per byte, without separators.
std::string hexadecimalText(const Data& bytes);

/// The forms of RFC 4648: `standard` is section 4, with padding; `url` is section 5, without padding.
enum class Base64Form { standard, url };

/// Encodes bytes that arrive in parts as Base64, without line breaks.
class Base64Writer {
public:
    explicit Base64Writer(Base64Form form = Base64Form::standard) : m_form(form) {}

    void append(std::span<const std::byte> bytes);
    void append(std::string_view bytes) { append(std::as_bytes(std::span(bytes))); }
    [[nodiscard]] std::string finish() &&;

private:
    void writeRest();

    Base64Form m_form;
    std::string m_text;
    /// The last bytes, fewer than three, that are not in `m_text` yet; followed by zeros.
    std::array<std::byte, 3> m_rest{};
    std::size_t m_restCount = 0;
};

/// Encodes `bytes` as Base64, without line breaks.
std::string base64Text(std::span<const std::byte> bytes, Base64Form form);
inline std::string base64Text(std::string_view bytes)
{
    return base64Text(std::as_bytes(std::span(bytes)), Base64Form::standard);
}

/// Decodes Base64 of the form `url`. Absent unless `text` is exactly what `base64Text` would write: no
/// padding, no other characters, and no unused bits that are set.
std::optional<Data> decodeBase64URL(std::string_view text);

} // namespace Platform
