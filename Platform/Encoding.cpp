#include "Platform/Encoding.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace Platform {

namespace {

constexpr std::string_view base64Alphabet(Base64Form form)
{
    return form == Base64Form::standard ? "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"
                                        : "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
}

constexpr std::size_t bytesPerGroup = 3;
constexpr std::size_t digitsPerGroup = 4;

/// The two digits of each 12-bit number. Halves the cost of a large fingerprint, compared with single digits.
using Base64Pairs = std::array<std::array<char, 2>, 4096>;

constexpr Base64Pairs base64Pairs(Base64Form form)
{
    const std::string_view alphabet = base64Alphabet(form);
    Base64Pairs pairs{};
    for (std::size_t number = 0; number < pairs.size(); ++number)
        pairs[number] = {alphabet[number >> 6U], alphabet[number & 0x3FU]};
    return pairs;
}

constexpr Base64Pairs standardPairs = base64Pairs(Base64Form::standard);
constexpr Base64Pairs urlPairs = base64Pairs(Base64Form::url);

/// Writes four digits for each three bytes; the number of bytes must be a multiple of three.
void writeGroups(char* digits, std::span<const std::byte> bytes, Base64Form form)
{
    const Base64Pairs& pairs = form == Base64Form::standard ? standardPairs : urlPairs;
    const std::byte* const end = bytes.data() + bytes.size();
    for (const std::byte* group = bytes.data(); group != end; group += bytesPerGroup) {
        const auto number = std::to_integer<std::uint32_t>(group[0]) << 16U |
                            std::to_integer<std::uint32_t>(group[1]) << 8U |
                            std::to_integer<std::uint32_t>(group[2]);
        std::memcpy(digits, pairs[number >> 12U].data(), 2);
        std::memcpy(digits + 2, pairs[number & 0xFFFU].data(), 2);
        digits += digitsPerGroup;
    }
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

void Base64Writer::append(std::span<const std::byte> bytes)
{
    while (m_restCount > 0 && !bytes.empty()) {
        m_rest.at(m_restCount++) = bytes.front();
        bytes = bytes.subspan(1);
        if (m_restCount == bytesPerGroup)
            writeRest();
    }
    const std::span<const std::byte> groups = bytes.first(bytes.size() - bytes.size() % bytesPerGroup);
    const std::size_t oldSize = m_text.size();
    const std::size_t newSize = oldSize + groups.size() / bytesPerGroup * digitsPerGroup;
    // Smaller parts that follow a large one should not move it.
    constexpr std::size_t roomForMore = 1024;
    if (newSize > m_text.capacity())
        m_text.reserve(newSize + roomForMore);
    m_text.resize(newSize);
    writeGroups(m_text.data() + oldSize, groups, m_form);
    for (const std::byte byte : bytes.subspan(groups.size()))
        m_rest.at(m_restCount++) = byte;
}

void Base64Writer::writeRest()
{
    std::array<char, digitsPerGroup> digits{};
    writeGroups(digits.data(), m_rest, m_form);
    m_text.append(digits.data(), m_restCount + 1);
    m_rest = {};
    m_restCount = 0;
}

std::string Base64Writer::finish() &&
{
    if (m_restCount > 0)
        writeRest();
    if (m_form == Base64Form::standard)
        m_text.append((digitsPerGroup - m_text.size() % digitsPerGroup) % digitsPerGroup, '=');
    return std::move(m_text);
}

std::string base64Text(std::span<const std::byte> bytes, Base64Form form)
{
    Base64Writer writer(form);
    writer.append(bytes);
    return std::move(writer).finish();
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
