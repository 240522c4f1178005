#pragma once

#include "Platform/Linux/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <sys/types.h>

namespace Platform::Linux {

/// Held by the one application that works on a state folder; freed by the system when the process ends,
/// however it ends. Source: fcntl(2), advisory record locks.
class InstanceLock {
public:
    /// Takes the lock; absent when another process holds it. Throws `std::system_error` when the file cannot
    /// be made.
    static std::optional<InstanceLock> acquire(const std::filesystem::path& file);

    /// The process that holds the lock of this file, if any does. Leaves the lock alone.
    static std::optional<pid_t> holder(const std::filesystem::path& file);
    /// Whether a holder ends within this time.
    static bool isEnding(pid_t holder, std::chrono::milliseconds time);

private:
    explicit InstanceLock(FileDescriptor file) : m_file(std::move(file)) {}

    FileDescriptor m_file;
};

} // namespace Platform::Linux
