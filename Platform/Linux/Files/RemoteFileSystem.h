#pragma once

#include "Platform/Storage/PathWalk.h"

#include <chrono>
#include <vector>

namespace Platform::Linux::Files {

/// How often files without change events are checked.
inline constexpr std::chrono::minutes remoteCheckInterval{5};

/// Returns whether one of the existing `steps` is on a file system that other machines or a server program
/// can change, which inotify does not report. Source: inotify(7), "Limitations and caveats"; statfs(2).
bool hasRemoteFiles(const std::vector<Storage::PathStep>& steps);

} // namespace Platform::Linux::Files
