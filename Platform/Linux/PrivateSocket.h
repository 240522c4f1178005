#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <sys/types.h>

namespace Platform::Linux {

// Stream sockets in the file system, between processes of one user.

/// Listens at `file`, which only this user can open. The folder is made if it is missing, and must belong to
/// this user alone. A socket on which nobody listens any more is replaced. Never blocks. Throws
/// `std::runtime_error` with the reason.
Storage::FileDescriptor listenOnPrivateSocket(const std::filesystem::path& file);

/// Connects to `file`, where a process of this user must listen. `timeout` bounds this and each later wait
/// for the other side. Throws `std::system_error` when nobody can be reached there, and another
/// `std::runtime_error` when a process of another user listens.
Storage::FileDescriptor connectToPrivateSocket(const std::filesystem::path& file,
                                               std::chrono::seconds timeout);

/// The user on the other side of a connected socket; absent when the system does not know.
std::optional<uid_t> peerUser(const Storage::FileDescriptor& socket);

} // namespace Platform::Linux
