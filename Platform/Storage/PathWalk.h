#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Platform::Storage {

/// One folder, link or file on the way to a file.
struct PathStep {
    enum class Kind { folder, link, other, missing };

    std::filesystem::path path;
    Kind kind = Kind::missing;
    struct stat status {};
    /// Why it counts as missing: ENOENT, EACCES, ELOOP and so on.
    int error = 0;
};

/// Follows `path`, absolute, component by component and through every link, as the kernel does, and returns
/// the steps in order: the folders, the links, and last the file, or the first component that is missing. A
/// loop of links and a folder that may not be searched end the walk as missing.
///
/// Each folder is held open while its entry is looked up, so the steps are one way through the file system,
/// whatever is renamed meanwhile. `folder`, if given, receives the last one, open for openat(2): it holds the
/// last step unless that is a folder.
std::vector<PathStep> walkPath(const std::filesystem::path& path, FileDescriptor* folder = nullptr);

struct Exposure {
    /// Follows the name of the step: "belongs to user 1000".
    std::string reason;
    const char* fix;
};

/// Returns how a user other than root and ourselves could replace what the step stands for. Absent when none
/// could, and for a missing step. Sticky folders such as /tmp pass.
std::optional<Exposure> exposureOf(const PathStep& step);

/// Returns why a file reached by these steps is not trusted: a user other than root and ourselves could have
/// replaced it. Absent when it is trusted. Sticky folders such as /tmp pass.
std::optional<std::string> distrustReason(const std::vector<PathStep>& steps);

} // namespace Platform::Storage
