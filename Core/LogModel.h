#pragma once

#include "Platform/Error.h"
#include "Platform/UnifiedLog.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Core {

/// The area of the application that a log line belongs to.
enum class LogCategory {
    general,
    dashboard,
    onboarding,
    notifications,
    remoteCasting,
    sso,
    ssoExtension,
    network,
};

inline constexpr std::array allLogCategories{
    LogCategory::general,       LogCategory::dashboard, LogCategory::onboarding,   LogCategory::notifications,
    LogCategory::remoteCasting, LogCategory::sso,       LogCategory::ssoExtension, LogCategory::network,
};

/// Returns the category's name, which is also the category of its log handle.
std::string_view rawValue(LogCategory category);
/// Returns the category with this name (case-sensitive), if it exists.
std::optional<LogCategory> logCategory(std::string_view rawValue);

/// Visibility of a line in the system log. `inherit` means `LoggingConfig::defaultPrivacy`.
enum class LogPrivacy { inherit, public_, private_ };

enum class LogLevel { debug, info, warning, error, critical };

Platform::LogType unifiedLogType(LogLevel level);

using LogMetadata = std::map<std::string, std::string>;

/// Structured context of a log line.
struct LogContext {
    std::optional<Platform::Error> error = {};
    LogMetadata metadata = {};
};

/// Source location of a log call. The caller passes only the function label, such as "execute(_:)". The file
/// includes its folder: "Core/APIClient.cpp".
class CallSite {
public:
    consteval CallSite(const char* functionLabel, const char* path = __builtin_FILE(),
                       int lineNumber = __builtin_LINE())
        : file(moduleAndName(path)), function(functionLabel), line(lineNumber)
    {}

    const char* file;
    const char* function;
    std::int64_t line;

private:
    static consteval const char* moduleAndName(const char* path)
    {
        const char* module = path;
        const char* name = path;
        for (const char* character = path; *character != '\0'; ++character) {
            if (*character == '/') {
                module = name;
                name = character + 1;
            }
        }
        return module;
    }
};

/// Process-wide logging switches; every log call reads them. Threads: any, without a lock.
struct LoggingConfig {
    LoggingConfig() = delete;

    /// If false, nothing is logged.
    inline static std::atomic<bool> isLoggingEnabled = true;
    /// If false, debug lines are dropped.
    inline static std::atomic<bool> isDebugLoggingEnabled = false;
    /// If true, every line ends with its source location.
    inline static std::atomic<bool> includeSourceContext = false;
    inline static std::atomic<LogPrivacy> defaultPrivacy = LogPrivacy::private_;
    /// Subsystem of log handles created from now on; null means the bundle identifier.
    inline static std::atomic<std::shared_ptr<const std::string>> subsystem = nullptr;

    static bool usePublicPrivacy() { return defaultPrivacy == LogPrivacy::public_; }
    static void setUsePublicPrivacy(bool isPublic)
    {
        defaultPrivacy = isPublic ? LogPrivacy::public_ : LogPrivacy::private_;
    }
    static void setVerboseLoggingEnabled(bool isVerbose) { isDebugLoggingEnabled = isVerbose; }
};

/// Returns `public_` or `private_`, never `inherit`.
LogPrivacy resolvedPrivacy(LogPrivacy requested);

} // namespace Core
