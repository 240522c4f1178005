#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <filesystem>

namespace Platform::Storage {

// The app's files and folders must belong to the current user and be inaccessible to others. Otherwise
// another user could read keys or replace the configuration.
//
// Errors: `std::runtime_error` with the path, the reason and a fix. Paths are absolute.

/// Throws unless only root and the current user control the path to `folder`. Below a folder that other users
/// cannot access, nothing is checked. `variable` is the environment variable that sets the folder, for the
/// error message.
void requirePrivateWay(const std::filesystem::path& folder, const char* variable);

/// Creates `folder` and its missing parents, accessible only to the current user, and removes other users'
/// access to an existing `folder`. Creates nothing unless the path is private. Throws if the folder belongs
/// to another user.
void preparePrivateFolder(const std::filesystem::path& folder, const char* variable);

/// Opens a file in a private folder with the flags of open(2), without following symbolic links or blocking
/// on a pipe, and removes other users' access to it. Throws unless it is a regular file of the current user
/// with one hard link.
FileDescriptor openPrivateFile(const std::filesystem::path& file, int flags);

/// Checks an existing file like `openPrivateFile` and removes other users' access to it. Opens no descriptor,
/// because closing one would release this process's locks on the file.
void preparePrivateFile(const std::filesystem::path& file);

/// Throws if `file` exists but is not a regular file with one hard link that belongs to root, or to the user
/// whose rights this thread uses.
void requireReadableFile(const std::filesystem::path& file);

/// Makes root access files with the rights of their owner, who could replace them with links at any moment.
/// SQLite run by root would also change the ownership of log files.
///
/// Applies to the current thread during the lifetime of this object. Has no effect for users other than root,
/// for root's own files, and if `file` is missing.
class OwnersRights {
public:
    explicit OwnersRights(const std::filesystem::path& file);
    ~OwnersRights();
    OwnersRights(const OwnersRights&) = delete;
    OwnersRights& operator=(const OwnersRights&) = delete;
};

} // namespace Platform::Storage
