#include "Core/Logger.h"

#include "Core/ErrorBridging.h"
#include "Platform/Services.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace Core {

namespace {

/// Large enough for typical lines: avoids heap allocations.
using LineBuffer = fmt::basic_memory_buffer<char, 1024>;

void append(LineBuffer& line, std::string_view text)
{
    line.append(text.data(), text.data() + text.size());
}

void appendError(LineBuffer& line, const Platform::Error& error)
{
    fmt::format_to(std::back_inserter(line), " | error={{type={}, domain={}, code={}, description={}",
                   error.typeName, error.domain, error.code, error.localizedDescription);
    if (error.localizedFailureReason && !error.localizedFailureReason->empty()) {
        append(line, ", reason=");
        append(line, *error.localizedFailureReason);
    }
    append(line, "}");
}

/// Appends the pairs in ascending order of their keys, without escaping.
void appendPairs(LineBuffer& line, std::span<LogPair> pairs)
{
    std::sort(pairs.begin(), pairs.end(),
              [](const LogPair& left, const LogPair& right) { return left.first < right.first; });
    append(line, " | context={");
    for (std::string_view separator; const auto& [key, value] : pairs) {
        append(line, std::exchange(separator, ", "));
        append(line, key);
        append(line, "=");
        append(line, value);
    }
    append(line, "}");
}

void appendContext(LineBuffer& line, std::span<const LogPair> given, const LogMetadata* metadata)
{
    constexpr std::size_t usualPairCount = 8;
    if (metadata != nullptr) {
        std::vector<LogPair> pairs(metadata->begin(), metadata->end());
        if (!pairs.empty())
            appendPairs(line, pairs);
    } else if (given.size() > usualPairCount) {
        std::vector<LogPair> pairs(given.begin(), given.end());
        appendPairs(line, pairs);
    } else if (!given.empty()) {
        std::array<LogPair, usualPairCount> pairs;
        std::copy(given.begin(), given.end(), pairs.begin());
        appendPairs(line, std::span(pairs).first(given.size()));
    }
}

} // namespace

std::optional<Platform::Error> LogError::bridged() const
{
    if (m_exception != nullptr)
        return bridge(*m_exception);
    return m_error != nullptr ? std::optional(*m_error) : std::nullopt;
}

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
    LineBuffer line;
    append(line, message);
    if (const auto error = call.error.bridged())
        appendError(line, *error);
    appendContext(line, call.pairs, call.metadata);
    if (LoggingConfig::includeSourceContext)
        fmt::format_to(std::back_inserter(line), " | source={}:{} {}", call.site.file, call.site.line,
                       call.site.function);
    const Platform::LogHandle& handle = osLog(call.category);
    m_sink->write({line.data(), line.size()}, level, resolvedPrivacy(call.privacy), handle);
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
