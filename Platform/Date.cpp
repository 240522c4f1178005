#include "Platform/Date.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace Platform {

Date Date::fromSystemTime(std::chrono::system_clock::time_point time)
{
    const std::chrono::duration<double> sinceReference = time.time_since_epoch() - referenceSinceUnixEpoch;
    return {sinceReference.count()};
}

std::string Date::utcText() const
{
    using namespace std::chrono;
    constexpr double yearZero = -63'113'904'000.0;        // 0000-01-01T00:00:00Z
    constexpr double yearTenThousand = 252'423'993'600.0; // 10000-01-01T00:00:00Z
    std::array<char, 64> text{};
    if (!(secondsSinceReferenceDate >= yearZero && secondsSinceReferenceDate < yearTenThousand)) {
        const auto written = std::to_chars(text.begin(), text.end(), secondsSinceReferenceDate);
        return {text.data(), written.ptr};
    }
    const milliseconds sinceReference{
        static_cast<std::int64_t>(std::floor(secondsSinceReferenceDate * 1000))};
    const sys_time<milliseconds> instant{sinceReference + referenceSinceUnixEpoch};
    const auto day = floor<days>(instant);
    const year_month_day date{day};
    const hh_mm_ss time{instant - day};
    const int length = std::snprintf(
        text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
        static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
        static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()));
    return {text.data(), static_cast<std::size_t>(length)};
}

} // namespace Platform
