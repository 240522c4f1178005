#pragma once

#include "Platform/Date.h"

#include <optional>
#include <string>

namespace Qvctl {

/// The instant that a person means by an age ("90s", "10m", "2h", "3d" before `now`) or by a time
/// ("2026-11-21", "2026-11-21T15:04", "2026-11-21 15:04:05.678"), local unless it ends with "Z". Absent for
/// anything else.
std::optional<Platform::Date> timeFromText(const std::string& text, Platform::Date now);

} // namespace Qvctl
