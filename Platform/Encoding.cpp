#include "Platform/Encoding.h"

#include <array>

namespace Platform {

bool isContinuationByte(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

std::optional<DecodedCharacter> decodeUTF8(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80)
        return DecodedCharacter{lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return std::nullopt;
    char32_t codePoint = lead & (0x7FU >> length);
    for (std::size_t index = 1; index < length; ++index) {
        if (!isContinuationByte(text[index]))
            return std::nullopt;
        codePoint = (codePoint << 6U) | (static_cast<unsigned char>(text[index]) & 0x3FU);
    }
    constexpr std::array<char32_t, 5> leastOfLength{0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = codePoint >= 0xD800 && codePoint < 0xE000;
    if (codePoint < leastOfLength.at(length) || isSurrogate || codePoint > 0x10FFFF)
        return std::nullopt;
    return DecodedCharacter{codePoint, length};
}

void appendUTF8(std::string& out, char32_t codePoint)
{
    const auto tail = [codePoint](unsigned shift) {
        return static_cast<char>(0x80U | ((codePoint >> shift) & 0x3FU));
    };
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        out += {static_cast<char>(0xC0U | (codePoint >> 6U)), tail(0)};
    } else if (codePoint < 0x10000) {
        out += {static_cast<char>(0xE0U | (codePoint >> 12U)), tail(6), tail(0)};
    } else {
        out += {static_cast<char>(0xF0U | (codePoint >> 18U)), tail(12), tail(6), tail(0)};
    }
}

bool isUTF8(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto character = decodeUTF8(bytes);
        if (!character)
            return false;
        bytes.remove_prefix(character->length);
    }
    return true;
}

std::string hexadecimalText(const Data& bytes)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::byte byte : bytes) {
        text += digits[std::to_integer<std::size_t>(byte >> 4)];
        text += digits[std::to_integer<std::size_t>(byte & std::byte{0x0f})];
    }
    return text;
}

} // namespace Platform
