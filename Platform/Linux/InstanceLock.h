#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>

namespace Platform::Linux {

/// Held by the one application that works on a state folder; freed by the system when the process ends,
/// however it ends. Source: fcntl(2), advisory record locks.
class InstanceLock {
public:
    /// Takes the lock; absent when another process holds it. Throws `std::runtime_error` when the file cannot
    /// be made, or when it or its folder does not belong to this user alone.
    static std::optional<InstanceLock> acquire(const std::filesystem::path& file);

    struct Holder {
        /// Absent when it runs where this process sees no number of it: in another container, or on another
        /// machine that shares the folder.
        std::optional<pid_t> process;
        /// The name of the process; empty when it is unknown.
        std::string program = {};

        /// False for a process with another name than the application's.
        [[nodiscard]] bool isApplication() const;
    };
    /// Returns who holds the lock of this file; absent when it is free. Does not take the lock.
    static std::optional<Holder> holder(const std::filesystem::path& file);

    enum class SignalOutcome {
        delivered,
        /// The holder ended within the time given, or the lock was free.
        ended,
        /// It cannot be signaled from here; see `Holder`.
        elsewhere,
        /// It is not this program, or not this user's.
        foreign,
    };
    /// Sends the signal to the holder, if that is a process of this program and this user, and waits for its
    /// end for at most this long.
    static SignalOutcome signalHolder(const std::filesystem::path& file, int signal,
                                      std::chrono::milliseconds time);

private:
    explicit InstanceLock(Storage::FileDescriptor file) : m_file(std::move(file)) {}

    Storage::FileDescriptor m_file;
};

} // namespace Platform::Linux
