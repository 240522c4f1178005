#pragma once

#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Platform/UnifiedLog.h"

#include <string>

namespace Platform::Linux::Logging {

/// Writes each entry to the systemd journal with native fields: MESSAGE, PRIORITY, SYSLOG_IDENTIFIER,
/// QV_SUBSYSTEM, QV_CATEGORY, QV_LEVEL and QV_PRIVACY. A text keeps its line breaks; everything else that is
/// unprintable is escaped, because the readers of the journal print it as it is.
///
/// Source: sd_journal_send(3), systemd.journal-fields(7).
class JournalLog final : public UnifiedLog {
public:
    JournalLog(std::string identifier, PrivateData privateData);
    void write(const LogHandle& handle, LogType type, LogVisibility visibility,
               std::string_view line) noexcept override;

    /// Whether there is a journal to write to. Sending to none goes unnoticed otherwise.
    static bool isAvailable();

private:
    const std::string m_identifier;
    const PrivateData m_privateData;
};

} // namespace Platform::Linux::Logging
