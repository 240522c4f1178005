#pragma once

#include "Platform/Date.h"
#include "Platform/UnifiedLog.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace Platform {
class Clock;
}

namespace Platform::Linux::Logging {

/// Whether private lines are logged in full or as "<private>".
enum class PrivateData { redacted, shown };

/// Returns `shown` if QUORVANE_LOG_PRIVATE_DATA is "show", otherwise `redacted`.
PrivateData privateDataFromEnvironment();

/// Returns `line`, or "<private>" if it must be redacted.
std::string_view visibleText(std::string_view line, LogVisibility visibility, PrivateData privateData);

/// Returns the severity's name in log output: "debug", "info", "warning", "error" or "critical".
std::string_view severityName(LogType type);

/// Formats an entry as one line that ends with a line break: UTC time, severity, subsystem, category, text.
/// Escapes unprintable characters, so one entry never looks like two.
std::string logLine(Date time, std::string_view severity, std::string_view subsystem,
                    std::string_view category, std::string_view text);

/// Writes each entry as one line to standard error. Never blocks: if the reader falls behind, entries are
/// dropped, and the next entry written is preceded by their number.
class StandardErrorLog final : public UnifiedLog {
public:
    StandardErrorLog(const Clock& clock, PrivateData privateData) : m_clock(clock), m_privateData(privateData)
    {}
    void write(const LogHandle& handle, LogType type, LogVisibility visibility,
               std::string_view line) noexcept override;

private:
    static bool writeWithoutWaiting(std::string_view text);

    const Clock& m_clock;
    const PrivateData m_privateData;
    std::mutex m_mutex;
    std::size_t m_lostCount = 0;
};

} // namespace Platform::Linux::Logging
