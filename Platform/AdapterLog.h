#pragma once

#include "Platform/UnifiedLog.h"

#include <string>
#include <string_view>

namespace Platform {

/// Writes the adapters' log lines about the device, such as a policy file that cannot be read. The lines are
/// public: they contain paths and reasons, never a configured value. Unprintable characters are escaped,
/// because file names and library messages can contain anything.
///
/// Threads: any.
class AdapterLog {
public:
    AdapterLog(UnifiedLog& log, std::string subsystem);
    void error(std::string_view line) const noexcept { write(LogType::error, line); }
    /// For problems that do not stop the adapter from working.
    void warning(std::string_view line) const noexcept { write(LogType::default_, line); }

private:
    void write(LogType type, std::string_view line) const noexcept;

    UnifiedLog& m_log;
    LogHandle m_handle;
};

/// Logs an error once: drops a line that repeats the previous line and occasion, until `reset()`.
///
/// Threads: not synchronized; the owner serializes calls.
class ErrorLine {
public:
    explicit ErrorLine(const AdapterLog& log) : m_log(log) {}
    /// Returns whether the line was logged.
    bool report(const std::string& line, std::string_view occasion = {});
    void reset() { m_last.clear(); }

private:
    const AdapterLog& m_log;
    std::string m_last;
};

} // namespace Platform
