#pragma once

#include <string>
#include <string_view>

namespace Platform {

/// Where a line belongs: the program or component, and an area of it.
struct LogHandle {
    std::string subsystem;
    std::string category;
};

/// The system log's own severities, in rising order.
enum class LogType { debug, info, default_, error, fault };

/// Whether the text of a line may be stored readably.
enum class LogVisibility { public_, private_ };

/// The system's log.
///
/// Threads: any, concurrently.
/// Implementers owe: one entry per call, in the order of the calls of one thread; no exception leaves
/// `write`; the text of a private line is replaced by "<private>" unless the machine's owner asked to see it.
class UnifiedLog {
public:
    virtual ~UnifiedLog() = default;
    virtual void write(const LogHandle& handle, LogType type, LogVisibility visibility,
                       std::string_view line) noexcept = 0;
};

} // namespace Platform
