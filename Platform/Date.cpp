#include "Platform/Date.h"

#include "Platform/NumberText.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace Platform {

namespace {

/// Appends a non-negative number, zero-padded to `width` digits, and `delimiter`.
void appendNumber(std::string& out, std::int64_t number, std::size_t width, char delimiter)
{
    const std::string digits = std::to_string(number);
    out.append(width - std::min(width, digits.size()), '0').append(digits) += delimiter;
}

} // namespace

Date Date::fromSystemTime(std::chrono::system_clock::time_point time)
{
    const std::chrono::duration<double> sinceReference = time.time_since_epoch() - referenceSinceUnixEpoch;
    return {sinceReference.count()};
}

std::string Date::utcText() const
{
    using namespace std::chrono;
    constexpr double yearZero = -63'145'526'400.0;        // 0000-01-01T00:00:00Z
    constexpr double yearTenThousand = 252'423'993'600.0; // 10000-01-01T00:00:00Z
    if (!(secondsSinceReferenceDate >= yearZero && secondsSinceReferenceDate < yearTenThousand))
        return shortestRealText(secondsSinceReferenceDate);
    const milliseconds sinceReference{
        static_cast<std::int64_t>(std::floor(secondsSinceReferenceDate * 1000))};
    const sys_time<milliseconds> instant{sinceReference + referenceSinceUnixEpoch};
    const auto day = floor<days>(instant);
    const year_month_day date{day};
    const hh_mm_ss time{instant - day};
    std::string text;
    appendNumber(text, static_cast<int>(date.year()), 4, '-');
    appendNumber(text, static_cast<unsigned>(date.month()), 2, '-');
    appendNumber(text, static_cast<unsigned>(date.day()), 2, 'T');
    appendNumber(text, time.hours().count(), 2, ':');
    appendNumber(text, time.minutes().count(), 2, ':');
    appendNumber(text, time.seconds().count(), 2, '.');
    appendNumber(text, time.subseconds().count(), 3, 'Z');
    return text;
}

} // namespace Platform
