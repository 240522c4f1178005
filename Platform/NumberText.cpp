#include "Platform/NumberText.h"

#include <array>
#include <charconv>

namespace Platform {

std::string realText(double value)
{
    constexpr int significantDigits = 16;
    std::array<char, 32> text{};
    const auto written =
        std::to_chars(text.begin(), text.end(), value, std::chars_format::general, significantDigits);
    return {text.data(), written.ptr};
}

std::string shortestRealText(double value)
{
    std::array<char, 32> text{};
    const auto written = std::to_chars(text.begin(), text.end(), value);
    return {text.data(), written.ptr};
}

std::optional<double> parseDecimal(std::string_view digits)
{
    // std::from_chars also accepts "inf" and "nan", which each format spells differently.
    const std::size_t start = digits.starts_with('-') ? 1 : 0;
    if (digits.find_first_of("0123456789.", start) != start)
        return std::nullopt;
    double value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [parsedTo, failure] = std::from_chars(digits.data(), end, value);
    if (failure != std::errc{} || parsedTo != end)
        return std::nullopt;
    return value;
}

} // namespace Platform
