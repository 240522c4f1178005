#include "Core/Logger.h"

#include "Platform/Services.h"

namespace Core {

void OSLogSink::write(std::string_view line, LogLevel level, LogPrivacy privacy,
                      const Platform::LogHandle& log)
{
    const auto visibility =
        privacy == LogPrivacy::public_ ? Platform::LogVisibility::public_ : Platform::LogVisibility::private_;
    m_unifiedLog.write(log, unifiedLogType(level), visibility, line);
}

Logger::Logger(std::unique_ptr<LogSink> sink, std::optional<std::string> bundleIdentifier)
    : m_sink(std::move(sink)), m_bundleIdentifier(std::move(bundleIdentifier))
{}

Logger& Logger::shared()
{
    static Logger& logger = *new Logger(std::make_unique<OSLogSink>(Platform::services().log),
                                        Platform::services().bundleIdentifier);
    return logger;
}

void Logger::write(LogLevel level, std::string_view message, const LogCall& call)
{
    const CallSite* source = LoggingConfig::includeSourceContext ? &call.site : nullptr;
    const std::string line = formatLogLine(message, call.error, call.metadata, source);
    const Platform::LogHandle& handle = osLog(call.category);
    m_sink->write(line, level, resolvedPrivacy(call.privacy), handle);
}

const Platform::LogHandle& Logger::osLog(LogCategory category)
{
    const std::lock_guard lock(m_loggerCacheLock);
    auto& handle = m_loggerCache.at(static_cast<std::size_t>(category));
    if (!handle) {
        const auto configured = LoggingConfig::subsystem.load();
        const std::string subsystem = configured ? *configured : m_bundleIdentifier.value_or("unknown");
        handle = std::make_unique<const Platform::LogHandle>(
            Platform::LogHandle{subsystem, std::string(rawValue(category))});
    }
    return *handle;
}

} // namespace Core
