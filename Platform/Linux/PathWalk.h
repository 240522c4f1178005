#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Platform::Linux {

/// One thing met on the way to a file.
struct PathStep {
    enum class Kind { folder, link, other, missing };

    std::filesystem::path path;
    Kind kind = Kind::missing;
    struct stat status {};
};

/// Follows `path`, absolute, component by component and through every link, as the system does, and tells
/// what it met, in order: the folders, the links, and last what stands at the end, or the first thing that is
/// missing. Never fails: a loop of links, or a folder that may not be searched, ends the walk as missing.
std::vector<PathStep> walkPath(const std::filesystem::path& path);

/// Why a file reached by these steps is not to be believed: somebody other than root and the user could have
/// put it there. Absent when all is well. Folders that only their owners may rename in, such as /tmp, pass.
std::optional<std::string> distrustReason(const std::vector<PathStep>& steps);

} // namespace Platform::Linux
