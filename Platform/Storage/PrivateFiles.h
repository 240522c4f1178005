#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <filesystem>

namespace Platform::Storage {

// What the app keeps, and the folders it keeps it in, must belong to this user and be closed to others:
// another user who prepared them could read keys there, or replace the configuration.
//
// Errors: `std::runtime_error` with the path, the reason and a fix. Paths are absolute.

/// Requires that only root and this user decide where `folder` is. Folders below one that is closed to other
/// users are not examined. `variable` is the environment variable that moves the folder, for the message.
void requirePrivateWay(const std::filesystem::path& folder, const char* variable);

/// Makes `folder`, and those above it where they are missing, for this user alone, and closes it to others
/// where it is open to them. Makes nothing when the way to it is not private. Throws when the folder belongs
/// to another user.
void preparePrivateFolder(const std::filesystem::path& folder, const char* variable);

/// Opens a file of a private folder with the flags of open(2), without following a link and without waiting
/// for a writer of a pipe. Requires a regular file of this user with one name, and closes it to others.
FileDescriptor openPrivateFile(const std::filesystem::path& file, int flags);

/// Requires the same of a file, if it is there, and closes it to others. Opens no descriptor: closing that
/// would drop the locks that this process holds on the file.
void preparePrivateFile(const std::filesystem::path& file);

/// Requires that `file`, if it is there, is a regular file with one name, of root or of this user, or of the
/// user whose rights are in use.
void requireReadableFile(const std::filesystem::path& file);

/// Root reads the files of another user with the rights of that user, who could exchange them for links at
/// any moment. Opened by root, SQLite would also give a log away to the owner of its database.
///
/// For this thread, while this object exists. Does nothing for other users than root, for a file of root's,
/// and for one that is missing.
class OwnersRights {
public:
    explicit OwnersRights(const std::filesystem::path& file);
    ~OwnersRights();
    OwnersRights(const OwnersRights&) = delete;
    OwnersRights& operator=(const OwnersRights&) = delete;
};

} // namespace Platform::Storage
