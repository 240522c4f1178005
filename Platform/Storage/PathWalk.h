#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Platform::Storage {

/// One folder, symbolic link or file on a path.
struct PathStep {
    enum class Kind { folder, link, other, missing };

    std::filesystem::path path;
    Kind kind = Kind::missing;
    struct stat status {};
    /// The errno value if it counts as missing: ENOENT, EACCES, ELOOP and so on.
    int error = 0;
};

/// Resolves the absolute `path` component by component, following symbolic links as the kernel does. Returns
/// all steps in order; the last one is the file, or the first component that is missing. A component also
/// counts as missing if it cannot be accessed or is part of a loop of links.
///
/// Each folder is open while its entry is looked up, so concurrent renames cannot mix two paths. `folder`, if
/// not null, receives the last folder, for use with openat(2). That folder contains the last step, or is the
/// last step itself.
std::vector<PathStep> walkPath(const std::filesystem::path& path, FileDescriptor* folder = nullptr);

struct Exposure {
    /// A predicate for the path: "belongs to user 1000".
    std::string reason;
    const char* fix;
};

/// Returns how a user other than root and the current user could replace the file or folder. Absent if none
/// could, and for a missing step. Sticky folders such as /tmp are safe.
std::optional<Exposure> exposureOf(const PathStep& step);

/// Returns why the file at the end of these steps is not trusted: another user could have replaced it. Absent
/// if it is trusted. Sticky folders such as /tmp are safe.
std::optional<std::string> distrustReason(const std::vector<PathStep>& steps);

} // namespace Platform::Storage
