#include "Platform/Linux/Logging/StandardErrorLog.h"

#include "Platform/Clock.h"
#include "Platform/Encoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <exception>
#include <poll.h>
#include <unistd.h>

namespace Platform::Linux::Logging {

PrivateData privateDataFromEnvironment()
{
    const char* setting = std::getenv("QUORVANE_LOG_PRIVATE_DATA");
    return setting != nullptr && std::string_view(setting) == "show" ? PrivateData::shown
                                                                     : PrivateData::redacted;
}

std::string_view visibleText(std::string_view line, LogVisibility visibility, PrivateData privateData)
{
    return visibility == LogVisibility::public_ || privateData == PrivateData::shown ? line : "<private>";
}

std::string_view severityName(LogType type)
{
    constexpr std::array<std::string_view, 5> names{"debug", "info", "warning", "error", "critical"};
    return names.at(static_cast<std::size_t>(type));
}

std::string logLine(Date time, std::string_view severity, std::string_view subsystem,
                    std::string_view category, std::string_view text)
{
    return fmt::format("{} {} {} {} {}\n", time.utcText(), printable(severity), printable(subsystem),
                       printable(category), printable(text));
}

void StandardErrorLog::write(const LogHandle& handle, LogType type, LogVisibility visibility,
                             std::string_view line) noexcept
{
    try {
        std::string entry = logLine(m_clock.now(), severityName(type), handle.subsystem, handle.category,
                                    visibleText(line, visibility, m_privateData));
        const std::lock_guard lock(m_mutex);
        if (m_lostCount > 0) // Starts with a line break because the first lost line may be partly written.
            entry.insert(0, fmt::format("\n({} lines lost)\n", m_lostCount));
        m_lostCount = writeWithoutWaiting(entry) ? 0 : m_lostCount + 1;
    } catch (const std::exception&) {
        // Out of memory: drop the line rather than fail the caller.
    }
}

/// Returns whether all of `text` was written.
bool StandardErrorLog::writeWithoutWaiting(std::string_view text)
{
    while (!text.empty()) {
        pollfd room{STDERR_FILENO, POLLOUT, 0};
        if (::poll(&room, 1, 0) != 1 || (room.revents & POLLOUT) == 0)
            return false;
        // A writable pipe accepts this many bytes without blocking; see pipe(7).
        const std::size_t chunkBytes = std::min<std::size_t>(text.size(), PIPE_BUF);
        const ssize_t written = ::write(STDERR_FILENO, text.data(), chunkBytes);
        if (written < 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace Platform::Linux::Logging
