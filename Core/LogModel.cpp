#include "Core/LogModel.h"

#include <algorithm>

namespace Core {

namespace {

constexpr std::array<std::string_view, allLogCategories.size()> categoryNames{
    "general", "dashboard", "onboarding", "notifications", "remoteCasting", "sso", "ssoExtension", "network",
};

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

LogPrivacy resolvedPrivacy(LogPrivacy requested)
{
    const LogPrivacy privacy =
        requested == LogPrivacy::inherit ? LoggingConfig::defaultPrivacy.load() : requested;
    return privacy == LogPrivacy::public_ ? LogPrivacy::public_ : LogPrivacy::private_;
}

} // namespace Core
