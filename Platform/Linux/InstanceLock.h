#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>

namespace Platform::Linux {

/// The lock that ensures only one application uses a state folder. The kernel releases it when the process
/// ends. Source: fcntl(2), advisory record locks.
class InstanceLock {
public:
    /// What an instance does when another launch signals it.
    enum class WhenSignaled { opensWindow, exits };

    /// Acquires the lock; absent if another process holds it. Throws `std::runtime_error` if the file cannot
    /// be created, or if it or its folder does not belong to this user alone.
    static std::optional<InstanceLock> acquire(const std::filesystem::path& file,
                                               WhenSignaled whenSignaled = WhenSignaled::opensWindow);

    struct Holder {
        /// Absent if the process runs in another container, or on another machine that shares the folder.
        std::optional<pid_t> process;
        /// The process name; empty if unknown.
        std::string program = {};
        WhenSignaled whenSignaled = WhenSignaled::opensWindow;

        /// Returns false only if the process is known not to be the application.
        [[nodiscard]] bool isApplication() const;
        /// Whether the file of its program was replaced or removed since it started. Absent when unknown.
        [[nodiscard]] std::optional<bool> isOutdated() const;
    };
    /// Returns the process that holds the lock; absent if it is free. Does not acquire the lock.
    static std::optional<Holder> holder(const std::filesystem::path& file);

    enum class SignalOutcome {
        delivered,
        /// The holder exited in time, or the lock was free.
        ended,
        /// The holder cannot be signaled because its process is unknown; see `Holder`.
        unreachable,
        /// The holder is another program, or runs as another user.
        foreign,
    };
    /// Sends `signal` to the holder if it runs the same program as the same user, then waits for it to exit:
    /// up to `exitTime` if it exits when signaled, otherwise up to `usualTime`, since its window may have
    /// been closed just now.
    static SignalOutcome signalHolder(const std::filesystem::path& file, int signal,
                                      std::chrono::milliseconds usualTime = std::chrono::milliseconds(300),
                                      std::chrono::milliseconds exitTime = std::chrono::seconds(20));

private:
    explicit InstanceLock(Storage::FileDescriptor file) : m_file(std::move(file)) {}

    Storage::FileDescriptor m_file;
};

} // namespace Platform::Linux
