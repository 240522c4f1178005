#include "Platform/PropertyLists/XMLScalars.h"

#include "Platform/ASCII.h"
#include "Platform/NumberText.h"
#include "Platform/PropertyLists/PropertyListFormats.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>

namespace Platform::PropertyLists {

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(textBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(textBlanks) + 1 - first);
}

std::optional<PropertyList> parseInteger(std::string_view text)
{
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal)
        text.remove_prefix(2);
    std::uint64_t magnitude = 0;
    const char* const end = text.data() + text.size();
    const auto [parsedTo, failure] = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
    if (failure != std::errc{} || parsedTo != end)
        return std::nullopt;
    if (!negative)
        return magnitude;
    constexpr std::uint64_t leastMagnitude = std::uint64_t{1} << 63U;
    if (magnitude > leastMagnitude)
        return std::nullopt;
    return static_cast<std::int64_t>(0 - magnitude);
}

std::optional<PropertyList> parseReal(std::string_view text)
{
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    if (text.starts_with('-'))
        return std::nullopt;
    std::optional<double> magnitude;
    if (equalsIgnoringASCIICase(text, "nan"))
        magnitude = std::numeric_limits<double>::quiet_NaN();
    else if (equalsIgnoringASCIICase(text, "inf") || equalsIgnoringASCIICase(text, "infinity"))
        magnitude = std::numeric_limits<double>::infinity();
    else
        magnitude = parseDecimal(text);
    if (!magnitude)
        return std::nullopt;
    return negative ? -*magnitude : *magnitude;
}

std::optional<PropertyList> parseDate(std::string_view text)
{
    constexpr std::string_view pattern = "0000-00-00T00:00:00Z";
    const bool matches = std::ranges::equal(text, pattern, [](char given, char expected) {
        return expected == '0' ? isASCIIDigit(given) : given == expected;
    });
    if (!matches)
        return std::nullopt;
    const auto number = [text](std::size_t offset, std::size_t length) {
        unsigned value = 0;
        std::from_chars(text.data() + offset, text.data() + offset + length, value);
        return value;
    };
    using namespace std::chrono;
    const year_month_day date{year{static_cast<int>(number(0, 4))}, month{number(5, 2)}, day{number(8, 2)}};
    const hours hour{number(11, 2)};
    const minutes minute{number(14, 2)};
    const seconds second{number(17, 2)};
    if (!date.ok() || hour >= days{1} || minute >= hours{1} || second >= minutes{1})
        return std::nullopt;
    const seconds sinceUnixEpoch = sys_days{date}.time_since_epoch() + hour + minute + second;
    return Date{static_cast<double>((sinceUnixEpoch - Date::referenceSinceUnixEpoch).count())};
}

std::optional<PropertyList> parseData(std::string_view text)
{
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Data out;
    unsigned bits = 0;
    std::size_t digitCount = 0;
    std::size_t paddingCount = 0;
    for (const char character : text) {
        if (textBlanks.find(character) != std::string_view::npos)
            continue;
        const bool isPadding = character == '=';
        const std::size_t digit = isPadding ? 0 : alphabet.find(character);
        if (digit == std::string_view::npos || (!isPadding && paddingCount > 0))
            return std::nullopt;
        paddingCount += isPadding ? 1 : 0;
        bits = (bits << 6U) | static_cast<unsigned>(digit);
        if (++digitCount % 4 == 0)
            for (const unsigned shift : {16U, 8U, 0U})
                out.push_back(static_cast<std::byte>((bits >> shift) & 0xFFU));
    }
    if (digitCount % 4 != 0 || paddingCount > 2)
        return std::nullopt;
    out.resize(out.size() - paddingCount);
    return out;
}

} // namespace Platform::PropertyLists
