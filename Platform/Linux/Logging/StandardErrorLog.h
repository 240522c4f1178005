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

/// Whether private lines show their text.
enum class PrivateData { redacted, shown };

/// What QUORVANE_LOG_PRIVATE_DATA asks for: shown only when it is "show".
PrivateData privateDataFromEnvironment();

/// The text of a line as it may be seen.
std::string_view visibleText(std::string_view line, LogVisibility visibility, PrivateData privateData);

/// The name of a severity in log output: "debug", "info", "warning", "error" or "critical".
std::string_view severityName(LogType type);

/// One entry as a line of text, with the line break at its end: UTC time, severity, subsystem, category,
/// text. Whatever is unprintable in any of them is escaped, so that an entry never looks like two.
std::string logLine(Date time, std::string_view severity, std::string_view subsystem,
                    std::string_view category, std::string_view text);

/// Writes each entry as one line to standard error. When nobody reads what was
/// written, entries are lost rather than waited with; the next one that is written says how many.
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
