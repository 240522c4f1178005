#pragma once

#include "Platform/UnifiedLog.h"

#include <string>
#include <string_view>

namespace Platform {

/// Logs the adapters' own lines about the device, such as a policy file that cannot be read. They carry
/// paths and reasons, never a configured value, and are therefore public. File names and the messages of
/// libraries may hold anything: what is unprintable in a line is escaped here.
///
/// Threads: any.
class AdapterLog {
public:
    AdapterLog(UnifiedLog& log, std::string subsystem);
    void error(std::string_view line) const noexcept { write(LogType::error, line); }
    /// For what works, and should be known to whoever reads the log.
    void warning(std::string_view line) const noexcept { write(LogType::default_, line); }

private:
    void write(LogType type, std::string_view line) const noexcept;

    UnifiedLog& m_log;
    LogHandle m_handle;
};

/// Says the same thing once: a line equal to the one before, said for the same occasion, is dropped until
/// `reset()`.
///
/// Threads: guarded by its owner.
class ErrorLine {
public:
    explicit ErrorLine(const AdapterLog& log) : m_log(log) {}
    void report(const std::string& line, std::string_view occasion = {});
    void reset() { m_last.clear(); }

private:
    const AdapterLog& m_log;
    std::string m_last;
};

} // namespace Platform
