#include "Tools/qvctl/TimeText.h"

#include "Platform/NumberText.h"
#include "Platform/SystemClock.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <regex>
#include <utility>

namespace Qvctl {

namespace {

using Platform::Date;

double secondsOf(char unit)
{
    switch (unit) {
    case 'd':
        return 24 * 3600;
    case 'h':
        return 3600;
    case 'm':
        return 60;
    default:
        return 1;
    }
}

} // namespace

std::optional<Date> timeFromText(const std::string& text, Date now)
{
    static const std::regex age("([0-9]{1,9})([smhd])");
    static const std::regex time("([0-9]{4})-([0-9]{2})-([0-9]{2})"
                                 "(?:[T ]([0-9]{2}):([0-9]{2})(?::([0-9]{2})(\\.[0-9]{1,9})?)?(Z)?)?");
    std::smatch parts;
    if (std::regex_match(text, parts, age))
        return Date{now.secondsSinceReferenceDate -
                    Platform::parseDecimal(parts[1].str()).value() * secondsOf(*parts[2].first)};
    if (!std::regex_match(text, parts, time))
        return std::nullopt;

    const auto number = [&](std::size_t part) { return parts[part].matched ? std::stoi(parts[part]) : 0; };
    const std::chrono::year_month_day day{std::chrono::year(number(1)),
                                          std::chrono::month(static_cast<unsigned>(number(2))),
                                          std::chrono::day(static_cast<unsigned>(number(3)))};
    if (!day.ok() || number(4) > 23 || number(5) > 59 || number(6) > 60)
        return std::nullopt;
    std::tm fields{};
    fields.tm_year = number(1) - 1900;
    fields.tm_mon = number(2) - 1;
    fields.tm_mday = number(3);
    fields.tm_hour = number(4);
    fields.tm_min = number(5);
    fields.tm_sec = number(6);
    fields.tm_isdst = -1; // Determined by the date.
    const std::time_t seconds = parts[8].matched ? ::timegm(&fields) : std::mktime(&fields);
    const double fraction = parts[7].matched ? Platform::parseDecimal("0" + parts[7].str()).value() : 0;
    return Date{dateFromUnixTime(seconds).secondsSinceReferenceDate + fraction};
}

Date dateFromUnixTime(std::int64_t secondsSince1970)
{
    const auto seconds = static_cast<double>(secondsSince1970);
    return Date{seconds - static_cast<double>(Date::referenceSinceUnixEpoch.count())};
}

std::string relativeTime(Date date, Date now)
{
    const double seconds = now.secondsSinceReferenceDate - date.secondsSinceReferenceDate;
    const double duration = std::abs(seconds);
    if (duration < 1)
        return "just now";
    const auto [unit, name] = duration < secondsOf('m')   ? std::pair(secondsOf('s'), "s")
                              : duration < secondsOf('h') ? std::pair(secondsOf('m'), "min")
                              : duration < secondsOf('d') ? std::pair(secondsOf('h'), "h")
                                                          : std::pair(secondsOf('d'), "d");
    const std::string text = fmt::format("{:.0f} {}", std::floor(duration / unit), name);
    return seconds > 0 ? text + " ago" : "in " + text;
}

std::string timeWithAge(Date date)
{
    return fmt::format("{} ({})", relativeTime(date, Platform::SystemClock().now()), date.utcText());
}

} // namespace Qvctl
