#include "Platform/AdapterLog.h"

#include "Platform/Encoding.h"

#include <exception>
#include <utility>

namespace Platform {

AdapterLog::AdapterLog(UnifiedLog& log, std::string subsystem)
    : m_log(log), m_handle{std::move(subsystem), "platform"}
{}

void AdapterLog::write(LogType type, std::string_view line) const noexcept
{
    try {
        m_log.write(m_handle, type, LogVisibility::public_, printable(line));
    } catch (const std::exception&) {
        // Out of memory: lose the line rather than fail the caller.
    }
}

bool ErrorLine::report(const std::string& line, std::string_view occasion)
{
    std::string entry = line;
    entry.append("\n").append(occasion);
    if (entry == m_last)
        return false;
    m_log.error(line);
    m_last = std::move(entry);
    return true;
}

} // namespace Platform
