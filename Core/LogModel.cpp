#include "Core/LogModel.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Core {

namespace {

constexpr std::array<std::string_view, allLogCategories.size()> categoryNames{
    "general", "dashboard", "onboarding", "notifications", "remoteCasting", "sso", "ssoExtension", "network",
};

void appendError(std::string& line, const Platform::Error& error)
{
    fmt::format_to(std::back_inserter(line), " | error={{type={}, domain={}, code={}, description={}",
                   error.typeName, error.domain, error.code, error.localizedDescription);
    if (error.localizedFailureReason && !error.localizedFailureReason->empty())
        line.append(", reason=").append(*error.localizedFailureReason);
    line += '}';
}

void appendMetadata(std::string& line, const LogMetadata& metadata)
{
    line += " | context={";
    for (const char* separator = ""; const auto& [key, value] : metadata)
        line.append(std::exchange(separator, ", ")).append(key).append("=").append(value);
    line += '}';
}

} // namespace

std::string_view rawValue(LogCategory category)
{
    return categoryNames.at(static_cast<std::size_t>(category));
}

std::optional<LogCategory> logCategory(std::string_view rawValue)
{
    const auto* found = std::find(categoryNames.begin(), categoryNames.end(), rawValue);
    if (found == categoryNames.end())
        return std::nullopt;
    return allLogCategories.at(static_cast<std::size_t>(found - categoryNames.begin()));
}

Platform::LogType unifiedLogType(LogLevel level)
{
    switch (level) {
    case LogLevel::debug:
        return Platform::LogType::debug;
    case LogLevel::info:
        return Platform::LogType::info;
    case LogLevel::warning:
        return Platform::LogType::default_;
    case LogLevel::error:
        return Platform::LogType::error;
    case LogLevel::critical:
        break;
    }
    return Platform::LogType::fault;
}

LogPrivacy resolvedPrivacy(LogPrivacy asked)
{
    const LogPrivacy privacy = asked == LogPrivacy::inherit ? LoggingConfig::defaultPrivacy.load() : asked;
    return privacy == LogPrivacy::public_ ? LogPrivacy::public_ : LogPrivacy::private_;
}

std::string formatLogLine(std::string_view message, const std::optional<Platform::Error>& error,
                          const LogMetadata& metadata, const CallSite* source)
{
    std::string line(message);
    if (error)
        appendError(line, *error);
    if (!metadata.empty())
        appendMetadata(line, metadata);
    if (source != nullptr)
        fmt::format_to(std::back_inserter(line), " | source={}:{} {}", source->file, source->line,
                       source->function);
    return line;
}

} // namespace Core
