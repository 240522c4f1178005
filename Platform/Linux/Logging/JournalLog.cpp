#include "Platform/Linux/Logging/JournalLog.h"

#include "Platform/Encoding.h"
#include "Platform/Linux/Logging/JournalFields.h"

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include <array>
#include <exception>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

namespace Platform::Linux::Logging {

namespace {

/// Returns the syslog(3) priority.
char priorityDigit(LogType type)
{
    constexpr std::array digits{'7', '6', '4', '3', '2'};
    return digits.at(static_cast<std::size_t>(type));
}

} // namespace

JournalLog::JournalLog(std::string identifier, PrivateData privateData)
    : m_identifier(std::move(identifier)), m_privateData(privateData)
{}

bool JournalLog::isAvailable()
{
    return ::access("/run/systemd/journal/socket", W_OK) == 0;
}

void JournalLog::write(const LogHandle& handle, LogType type, LogVisibility visibility,
                       std::string_view line) noexcept
{
    try {
        const auto field = [](std::string_view name, std::string_view value) {
            return std::string(name).append("=").append(value);
        };
        const std::array fields{
            field(JournalFields::message,
                  printable(visibleText(line, visibility, m_privateData), LineBreaks::kept)),
            field(JournalFields::priority, std::string(1, priorityDigit(type))),
            field(JournalFields::identifier, m_identifier),
            field(JournalFields::subsystem, handle.subsystem),
            field(JournalFields::category, handle.category),
            field(JournalFields::level, severityName(type)),
            field(JournalFields::privacy, visibility == LogVisibility::public_ ? "public" : "private"),
        };
        std::array<iovec, fields.size()> vectors{};
        for (std::size_t i = 0; i < fields.size(); ++i)
            vectors.at(i) = {const_cast<char*>(fields.at(i).data()), fields.at(i).size()};
        ::sd_journal_sendv(vectors.data(), static_cast<int>(vectors.size()));
    } catch (const std::exception&) {
        // Out of memory: drop the line rather than fail the caller.
    }
}

} // namespace Platform::Linux::Logging
