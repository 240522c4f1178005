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

/// Returns why a file reached by these steps is not trusted: a user other than root and ourselves could have
/// replaced it. Absent when it is trusted. Sticky folders such as /tmp pass.
std::optional<std::string> distrustReason(const std::vector<PathStep>& steps);

/// Makes `folder`, absolute, and those above it where they are missing, for this user alone, and closes it to
/// others where it is open to them. Throws `std::runtime_error` with the reason when it belongs to another
/// user, or when another user could exchange it.
void preparePrivateFolder(const std::filesystem::path& folder);

} // namespace Platform::Storage
