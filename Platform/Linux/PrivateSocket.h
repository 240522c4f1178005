#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <sys/types.h>

namespace Platform::Linux {

// Unix stream sockets between processes of one user.

/// Listens at `file`, which only this user can open. Creates the folder if it is missing; it must belong to
/// this user alone. Replaces a socket on which no process listens any more. Never blocks. Throws
/// `std::runtime_error` with the reason.
Storage::FileDescriptor listenOnPrivateSocket(const std::filesystem::path& file);

/// Connects to `file`. `timeout` applies to this call and to each later read or write. Throws
/// `std::system_error` if no process can be reached, and another `std::runtime_error` if the listening
/// process runs as another user.
Storage::FileDescriptor connectToPrivateSocket(const std::filesystem::path& file,
                                               std::chrono::seconds timeout);

/// Returns the user id of the process at the other end of a connected socket; absent if unknown.
std::optional<uid_t> peerUser(const Storage::FileDescriptor& socket);

} // namespace Platform::Linux
