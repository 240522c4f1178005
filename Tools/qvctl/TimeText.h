#pragma once

#include "Platform/Date.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Qvctl {

/// Parses an age before `now` ("90s", "10m", "2h", "3d") or a date with an optional time ("2026-11-21",
/// "2026-11-21T15:04", "2026-11-21 15:04:05.678"), local unless it ends with "Z". Absent for other text.
std::optional<Platform::Date> timeFromText(const std::string& text, Platform::Date now);

/// The standard clock's times end in the year 2262, but certificates and files may have later ones.
Platform::Date dateFromUnixTime(std::int64_t secondsSince1970);

/// Returns how long ago `date` was: "3 min ago"; "in 3 min" if the clock was set back.
std::string relativeTime(Platform::Date date, Platform::Date now);

/// Returns the relative time and the date: "3 min ago (2026-11-21T15:04:05.678Z)".
std::string timeWithAge(Platform::Date date);

} // namespace Qvctl
