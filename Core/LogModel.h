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

/// The area of the application that a line belongs to.
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

/// The category's name, which is also the category of its log handle.
std::string_view rawValue(LogCategory category);
/// The category of exactly that name; case counts.
std::optional<LogCategory> logCategory(std::string_view rawValue);

/// How readable a line may be in the system log. `inherit` stands for `LoggingConfig::defaultPrivacy`.
enum class LogPrivacy { inherit, public_, private_ };

enum class LogLevel { debug, info, warning, error, critical };

Platform::LogType unifiedLogType(LogLevel level);

using LogMetadata = std::map<std::string, std::string>;

/// Structured context of one line.
struct LogContext {
    std::optional<Platform::Error> error = {};
    LogMetadata metadata = {};
};

/// Where a log call stands in the source. A call passes the label of its function, such as
/// "uploadTokenToBackend(tokenString:)"; file and line come by themselves, the file cut to its module and
/// name
/// ("Core/APIClient.cpp") at compile time.
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

/// Process-wide logging switches, read afresh by every call. Threads: any, without a lock.
struct LoggingConfig {
    LoggingConfig() = delete;

    /// False: no line of any level is produced.
    inline static std::atomic<bool> isLoggingEnabled = true;
    /// False: debug lines are dropped.
    inline static std::atomic<bool> isDebugLoggingEnabled = false;
    /// True: every line ends with its source segment.
    inline static std::atomic<bool> includeSourceContext = false;
    /// What `LogPrivacy::inherit` resolves to.
    inline static std::atomic<LogPrivacy> defaultPrivacy = LogPrivacy::private_;
    /// Overrides the subsystem of log handles made from now on; null: the bundle identifier.
    inline static std::atomic<std::shared_ptr<const std::string>> subsystem = nullptr;

    static bool usePublicPrivacy() { return defaultPrivacy == LogPrivacy::public_; }
    static void setUsePublicPrivacy(bool isPublic)
    {
        defaultPrivacy = isPublic ? LogPrivacy::public_ : LogPrivacy::private_;
    }
    static void setVerboseLoggingEnabled(bool isVerbose) { isDebugLoggingEnabled = isVerbose; }
};

/// `public_` or `private_`, whatever was asked for.
LogPrivacy resolvedPrivacy(LogPrivacy requested);

} // namespace Core
