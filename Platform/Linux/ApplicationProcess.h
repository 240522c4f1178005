#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <optional>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace Platform::Linux {

/// A running process of the application, of this or another user. Holds a process descriptor, so that a
/// signal never reaches another process with the same ID.
///
/// Threads: any. Source: pidfd_open(2); proc(5), /proc/PID/status.
class ApplicationProcess {
public:
    /// Absent if no process has this ID, or if its name is not the application's.
    static std::optional<ApplicationProcess> open(pid_t identifier);
    /// All processes of the application, of all users. Empty if /proc cannot be read.
    static std::vector<ApplicationProcess> all();

    [[nodiscard]] pid_t identifier() const { return m_identifier; }
    [[nodiscard]] uid_t user() const { return m_user; }

    enum class Outcome {
        delivered,
        /// The process has ended, or belongs to another user.
        unreachable,
        /// The process does not handle this signal, which would end it. An older version may still run.
        unsupported,
    };
    [[nodiscard]] Outcome send(int signal) const;

private:
    ApplicationProcess(pid_t identifier, Storage::FileDescriptor descriptor)
        : m_identifier(identifier), m_descriptor(std::move(descriptor))
    {}

    pid_t m_identifier;
    Storage::FileDescriptor m_descriptor;
    uid_t m_user = 0;
    /// The signals that its main thread blocks because another thread handles them; bit 0 is signal 1.
    unsigned long long m_blockedSignals = 0;
};

} // namespace Platform::Linux
