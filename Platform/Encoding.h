#pragma once

#include "Platform/PropertyList.h"

#include <cstddef>
#include <optional>
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

void appendUTF8(std::string& out, char32_t codePoint);

/// Whether the byte goes on with a character that another one began.
bool isContinuationByte(char byte);

/// Whether all of `bytes` is valid UTF-8.
bool isUTF8(std::string_view bytes);

/// Two lower-case digits per byte, in order, without separators.
std::string hexadecimalText(const Data& bytes);

} // namespace Platform
