#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace Platform::Linux {

// The C library of Debian 12 declares pidfd_open(2) and pidfd_send_signal(2) without C linkage.

/// Returns a descriptor of the process with this ID, or none and `errno`.
inline Storage::FileDescriptor openProcess(pid_t process)
{
    return Storage::FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0U)));
}

/// Sends `signal` to the process of the descriptor; 0 only checks that it could be sent. Returns false and
/// sets `errno` if it has ended or belongs to another user.
inline bool sendSignal(const Storage::FileDescriptor& process, int signal)
{
    return ::syscall(SYS_pidfd_send_signal, process.get(), signal, nullptr, 0U) == 0;
}

} // namespace Platform::Linux
