#pragma once

#include <chrono>
#include <compare>
#include <string>

namespace Platform {

/// A point in time, in seconds since 2001-01-01T00:00:00Z. All stored dates have this form.
struct Date {
    /// 2001-01-01T00:00:00Z, in seconds since 1970-01-01T00:00:00Z.
    static constexpr std::chrono::seconds referenceSinceUnixEpoch{978'307'200};

    double secondsSinceReferenceDate = 0;

    static Date fromSystemTime(std::chrono::system_clock::time_point time);

    /// Returns ISO 8601 text such as "2026-11-21T03:04:05.678Z". A date outside the years 0 to 9999 is
    /// written as its number of seconds.
    [[nodiscard]] std::string utcText() const;

    friend auto operator<=>(const Date&, const Date&) = default;
};

} // namespace Platform
