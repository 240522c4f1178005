#include "Platform/Linux/StandardErrorLog.h"

#include "Platform/Clock.h"
#include "Platform/Linux/FileDescriptor.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <unistd.h>

namespace Platform::Linux {

namespace {

void appendOnOneLine(std::string& out, std::string_view text)
{
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '\n')
            out += "\\n";
        else if (character == '\r')
            out += "\\r";
        else if ((code < 0x20 && character != '\t') || code == 0x7f)
            fmt::format_to(std::back_inserter(out), "\\x{:02x}", code);
        else
            out += character;
    }
}

} // namespace

PrivateData privateDataFromEnvironment()
{
    const char* asked = std::getenv("QUORVANE_LOG_PRIVATE_DATA");
    return asked != nullptr && std::string_view(asked) == "show" ? PrivateData::shown : PrivateData::redacted;
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

void StandardErrorLog::write(const LogHandle& handle, LogType type, LogVisibility visibility,
                             std::string_view line) noexcept
{
    try {
        std::string entry = fmt::format("{} {} {} {} ", m_clock.now().utcText(), severityName(type),
                                        handle.subsystem, handle.category);
        appendOnOneLine(entry, visibleText(line, visibility, m_privateData));
        entry += '\n';
        writeAll(STDERR_FILENO, entry);
    } catch (const std::exception&) {
        // There is nowhere left to say that standard error cannot be written.
    }
}

} // namespace Platform::Linux
