#pragma once

#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Platform/UnifiedLog.h"

#include <string>

namespace Platform::Linux::Logging {

/// Writes each entry to the systemd journal with native fields: MESSAGE, PRIORITY, SYSLOG_IDENTIFIER,
/// QV_SUBSYSTEM, QV_CATEGORY, QV_LEVEL and QV_PRIVACY. Messages keep their line breaks; other unprintable
/// characters are escaped, because journal readers print them as they are.
///
/// Source: sd_journal_send(3), systemd.journal-fields(7).
class JournalLog final : public UnifiedLog {
public:
    JournalLog(std::string identifier, PrivateData privateData);
    void write(const LogHandle& handle, LogType type, LogVisibility visibility,
               std::string_view line) noexcept override;

    /// Returns whether the journal's socket exists. Without it, `write` would discard entries silently.
    static bool isAvailable();

private:
    const std::string m_identifier;
    const PrivateData m_privateData;
};

} // namespace Platform::Linux::Logging
