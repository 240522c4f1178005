#include "Platform/Appearance.h"

#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <system_error>

namespace Platform {

namespace {

/// Applies one word of QUORVANE_APPEARANCE; false if it is unknown.
bool apply(std::string_view word, Appearance& appearance)
{
    constexpr std::string_view textPrefix = "text=";
    if (word == "dark" || word == "light") {
        appearance.isDark = word == "dark";
        return true;
    }
    if (word == "reduced-motion") {
        appearance.isMotionReduced = true;
        return true;
    }
    if (word == "high-contrast") {
        appearance.isContrastHigh = true;
        return true;
    }
    if (!word.starts_with(textPrefix))
        return false;
    word.remove_prefix(textPrefix.size());
    const char* end = word.data() + word.size();
    const auto [parsedEnd, error] = std::from_chars(word.data(), end, appearance.textScale);
    return error == std::errc() && parsedEnd == end && appearance.textScale >= 1 && appearance.textScale <= 2;
}

} // namespace

std::unique_ptr<FixedAppearance> FixedAppearance::fromEnvironment()
{
    const char* value = std::getenv("QUORVANE_APPEARANCE");
    if (value == nullptr)
        return nullptr;
    Appearance appearance;
    std::string_view words = value;
    for (bool isLast = false; !isLast;) {
        const auto comma = words.find(',');
        isLast = comma == std::string_view::npos;
        if (!apply(words.substr(0, comma), appearance))
            return nullptr;
        words.remove_prefix(isLast ? words.size() : comma + 1);
    }
    return std::make_unique<FixedAppearance>(appearance);
}

} // namespace Platform
