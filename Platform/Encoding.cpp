#include "Platform/Encoding.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace Platform {

namespace {

constexpr std::string_view base64Alphabet(Base64Form form)
{
    return form == Base64Form::standard ? "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"
                                        : "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
}

/// Returns whether Unicode reserves the code point as a noncharacter.
bool isNoncharacter(char32_t codePoint)
{
    return (codePoint >= 0xFDD0 && codePoint <= 0xFDEF) || (codePoint & 0xFFFEU) == 0xFFFE;
}

/// Returns whether this is the line or paragraph separator, which some programs treat as a line break.
bool isSeparator(char32_t codePoint)
{
    return codePoint == 0x2028 || codePoint == 0x2029;
}

/// Appends the escape sequence of a code point of at most 16 bits.
void appendEscape(std::string& out, char32_t codePoint)
{
    constexpr std::string_view digits = "0123456789abcdef";
    switch (codePoint) {
    case '\n':
        out += "\\n";
        return;
    case '\r':
        out += "\\r";
        return;
    case '\t':
        out += "\\t";
        return;
    default:
        break;
    }
    const bool isShort = codePoint <= 0xFF;
    out += isShort ? "\\x" : "\\u";
    for (int shift = isShort ? 4 : 12; shift >= 0; shift -= 4)
        out += digits[codePoint >> static_cast<unsigned>(shift) & 0xFU];
}

} // namespace

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

DecodedCharacter characterOrByte(std::string_view text)
{
    return decodeUTF8(text).value_or(DecodedCharacter{static_cast<unsigned char>(text.front()), 1});
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

bool isControlCharacter(char32_t codePoint)
{
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
}

bool isBidirectionalControl(char32_t codePoint)
{
    return codePoint == 0x061C || codePoint == 0x200E || codePoint == 0x200F ||
           (codePoint >= 0x202A && codePoint <= 0x202E) || (codePoint >= 0x2066 && codePoint <= 0x2069);
}

bool isUnprintable(char32_t codePoint)
{
    return isControlCharacter(codePoint) || isSeparator(codePoint) || isBidirectionalControl(codePoint);
}

std::string printable(std::string_view text, LineBreaks lineBreaks)
{
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const auto character = decodeUTF8(text);
        const auto [codePoint, length] = character.value_or(characterOrByte(text));
        if (character && (!isUnprintable(codePoint) || (codePoint == '\n' && lineBreaks == LineBreaks::kept)))
            out += text.substr(0, length);
        else
            appendEscape(out, codePoint);
        text.remove_prefix(length);
    }
    return out;
}

std::string plainText(std::string_view text, LineBreaks lineBreaks)
{
    constexpr char32_t replacementCharacter = 0xFFFD;
    std::string plain;
    while (!text.empty()) {
        const auto character = decodeUTF8(text);
        const char32_t codePoint = character ? character->codePoint : replacementCharacter;
        if (codePoint == '\n' && lineBreaks == LineBreaks::kept)
            plain += '\n';
        else if (codePoint == '\n' || codePoint == '\t' || isSeparator(codePoint))
            plain += ' ';
        else if (!isUnprintable(codePoint))
            appendUTF8(plain, isNoncharacter(codePoint) ? replacementCharacter : codePoint);
        text.remove_prefix(character ? character->length : 1);
        while (!character && !text.empty() && isContinuationByte(text.front()))
            text.remove_prefix(1);
    }
    return plain;
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

std::string base64Text(std::span<const std::byte> bytes, Base64Form form)
{
    const std::string_view alphabet = base64Alphabet(form);
    std::string text((bytes.size() + 2) / 3 * 4, '=');
    char* digit = text.data();
    const auto byte = [&](std::size_t index) { return std::to_integer<std::uint32_t>(bytes[index]); };
    const auto append = [&](std::uint32_t group, unsigned shift) {
        *digit++ = alphabet[group >> shift & 0x3fU];
    };
    for (; bytes.size() >= 3; bytes = bytes.subspan(3)) {
        const std::uint32_t group = byte(0) << 16U | byte(1) << 8U | byte(2);
        append(group, 18);
        append(group, 12);
        append(group, 6);
        append(group, 0);
    }
    if (!bytes.empty()) {
        const std::uint32_t group = byte(0) << 16U | (bytes.size() > 1 ? byte(1) << 8U : 0U);
        append(group, 18);
        append(group, 12);
        if (bytes.size() > 1)
            append(group, 6);
    }
    if (form == Base64Form::url)
        text.resize(static_cast<std::size_t>(digit - text.data()));
    return text;
}

std::optional<Data> decodeBase64URL(std::string_view text)
{
    Data bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t bits = 0;
    unsigned bitCount = 0;
    for (const char digit : text) {
        const auto value = base64Alphabet(Base64Form::url).find(digit);
        if (value == std::string_view::npos)
            return std::nullopt;
        bits = bits << 6U | static_cast<std::uint32_t>(value);
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            bytes.push_back(static_cast<std::byte>(bits >> bitCount));
            bits &= (1U << bitCount) - 1;
        }
    }
    // Six bits left over are an incomplete byte; fewer are padding of the last digit and must be 0.
    if (bitCount == 6 || bits != 0)
        return std::nullopt;
    return bytes;
}

} // namespace Platform
