#pragma once

#include <string>
#include <string_view>

namespace Platform {

/// The origin of a log line: a program or component, and an area within it.
struct LogHandle {
    std::string subsystem;
    std::string category;
};

/// The severities of the system log, in ascending order.
enum class LogType { debug, info, default_, error, fault };

/// Whether a line's text may be stored in plain form.
enum class LogVisibility { public_, private_ };

/// The system log.
///
/// Threads: any, concurrently.
///
/// Implementations must write one entry per call, keep the order of each thread's calls, and replace the text
/// of a private line with "<private>" unless the owner of the device has turned that off.
class UnifiedLog {
public:
    virtual ~UnifiedLog() = default;
    virtual void write(const LogHandle& handle, LogType type, LogVisibility visibility,
                       std::string_view line) noexcept = 0;
};

} // namespace Platform
