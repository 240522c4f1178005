#include "Core/UnicodeText.h"

#include "Platform/ASCII.h"
#include "Platform/Encoding.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace Core {

namespace {

using namespace std::string_view_literals;

bool isASCIIWhiteSpace(char character)
{
    return character == ' ' || (character >= '\t' && character <= '\r');
}

// Other white-space characters by the number of their UTF-8 bytes.
constexpr std::array twoBytes{"\u0085"sv, "\u00a0"sv};
constexpr std::array threeBytes{
    "\u1680"sv, "\u2000"sv, "\u2001"sv, "\u2002"sv, "\u2003"sv, "\u2004"sv,
    "\u2005"sv, "\u2006"sv, "\u2007"sv, "\u2008"sv, "\u2009"sv, "\u200a"sv,
    "\u2028"sv, "\u2029"sv, "\u202f"sv, "\u205f"sv, "\u3000"sv,
};

template <typename Characters>
bool contains(const Characters& characters, std::string_view candidate)
{
    return std::find(characters.begin(), characters.end(), candidate) != characters.end();
}

/// Returns the number of bytes of the white-space character at one end of a string of `size` bytes, or 0.
/// `bytesOf(count)` returns the `count` bytes at that end.
template <typename BytesOf>
std::size_t whiteSpaceLength(std::size_t size, BytesOf bytesOf)
{
    if (size == 0)
        return 0;
    // No byte of a multi-byte character is an ASCII character.
    const char outermost = bytesOf(1).front();
    if (static_cast<unsigned char>(outermost) < 0x80)
        return isASCIIWhiteSpace(outermost) ? 1 : 0;
    if (size >= 2 && contains(twoBytes, bytesOf(2)))
        return 2;
    if (size >= 3 && contains(threeBytes, bytesOf(3)))
        return 3;
    return 0;
}

bool isDoubleQuotationMark(char32_t character)
{
    constexpr std::array doubles{U'"', U'\u00ab', U'\u00bb', U'\u201c', U'\u201d', U'\u201e', U'\u201f'};
    return std::find(doubles.begin(), doubles.end(), character) != doubles.end();
}

} // namespace

std::string_view trimmed(std::string_view text)
{
    const auto first = [&](std::size_t count) { return text.substr(0, count); };
    const auto last = [&](std::size_t count) { return text.substr(text.size() - count); };
    while (const std::size_t length = whiteSpaceLength(text.size(), first))
        text.remove_prefix(length);
    while (const std::size_t length = whiteSpaceLength(text.size(), last))
        text.remove_suffix(length);
    return text;
}

bool isQuotationMark(char32_t character)
{
    constexpr std::array singles{U'\'', U'\u2018', U'\u2019', U'\u201a', U'\u201b', U'\u2039', U'\u203a'};
    return isDoubleQuotationMark(character) ||
           std::find(singles.begin(), singles.end(), character) != singles.end();
}

bool hasQuotationMarks(std::string_view text)
{
    bool isFirst = true;
    bool beginsWithOne = false;
    bool endsWithOne = false;
    while (!text.empty()) {
        const auto [character, length] = Platform::characterOrByte(text);
        if (isDoubleQuotationMark(character))
            return true;
        endsWithOne = isQuotationMark(character);
        if (std::exchange(isFirst, false))
            beginsWithOne = endsWithOne && length < text.size();
        text.remove_prefix(length);
    }
    return beginsWithOne && endsWithOne;
}

bool hasPrefixIgnoringCase(std::string_view text, std::string_view prefix)
{
    return Platform::equalsIgnoringASCIICase(text.substr(0, prefix.size()), prefix);
}

} // namespace Core
