#pragma once

#include <chrono>
#include <compare>
#include <string>

namespace Platform {

/// An instant, as seconds with fraction since 2001-01-01T00:00:00Z. Every stored date has this form.
struct Date {
    /// The reference instant, in seconds since 1970-01-01T00:00:00Z.
    static constexpr std::chrono::seconds referenceSinceUnixEpoch{978'307'200};

    double secondsSinceReferenceDate = 0;

    static Date fromSystemTime(std::chrono::system_clock::time_point time);

    /// "2026-11-21T03:04:05.678Z"; an instant outside the years 0 to 9999 is written as its seconds.
    [[nodiscard]] std::string utcText() const;

    friend auto operator<=>(const Date&, const Date&) = default;
};

} // namespace Platform
