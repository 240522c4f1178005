#pragma once

#include "Core/LogModel.h"

#include <concepts>
#include <exception>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <span>
#include <type_traits>
#include <utility>

namespace Core {

/// Destination of formatted log lines. Threads: any, concurrently.
class LogSink {
public:
    virtual ~LogSink() = default;
    /// Writes one line. `privacy` applies to the whole line and is never `inherit`.
    virtual void write(std::string_view line, LogLevel level, LogPrivacy privacy,
                       const Platform::LogHandle& log) = 0;
};

/// Writes to the system log.
class OSLogSink final : public LogSink {
public:
    explicit OSLogSink(Platform::UnifiedLog& unifiedLog) : m_unifiedLog(unifiedLog) {}
    void write(std::string_view line, LogLevel level, LogPrivacy privacy,
               const Platform::LogHandle& log) override;

private:
    Platform::UnifiedLog& m_unifiedLog;
};

/// A string, or a callable that returns one; it is called only if the line is written.
template <typename Message>
concept LogMessage = std::convertible_to<Message, std::string_view> ||
    (std::invocable<Message>&& std::convertible_to<std::invoke_result_t<Message>, std::string_view>);

/// A reference to the error of one log call; converted only if the line is written.
class LogError {
public:
    LogError() = default;
    LogError(const std::exception& exception) : m_exception(&exception) {}
    LogError(const Platform::Error& error) : m_error(&error) {}
    LogError(const std::optional<Platform::Error>& error) : m_error(error ? &*error : nullptr) {}

    [[nodiscard]] std::optional<Platform::Error> bridged() const;

private:
    const std::exception* m_exception = nullptr;
    const Platform::Error* m_error = nullptr;
};

using LogPair = std::pair<std::string_view, std::string_view>;

/// Optional arguments of a log call. They are references, so that a filtered-out call copies nothing; use
/// them only as a temporary in the call.
struct LogArguments {
    LogCategory category = LogCategory::general;
    LogError error = {};
    std::initializer_list<LogPair> context = {};
    LogPrivacy privacy = LogPrivacy::inherit;
};

/// Filters log calls, formats their lines and passes them to the sink.
///
/// Threads: any, concurrently; the message is evaluated and the line written on the calling thread, without
/// holding a lock. Errors: none.
///
///     logger.info("Configuration manager initialized", "setupManagedConfiguration()");
///     logger.error("API request failed", "execute(_:)",
///                  {.category = LogCategory::network, .error = error});
///     logger.debug([&] { return "token " + token; }, "didRegister(deviceToken:)");
///
/// Each level has two overloads: one for `LogArguments`, one for a category and a `LogContext`.
class Logger {
public:
    /// `bundleIdentifier` is the default for `LoggingConfig::subsystem`; without both it is "unknown".
    Logger(std::unique_ptr<LogSink> sink, std::optional<std::string> bundleIdentifier);

    /// Returns the logger of this process, created on first use and never destroyed.
    static Logger& shared();

    template <LogMessage Message>
    void debug(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::debug, std::forward<Message>(message), site, arguments);
    }
    template <LogMessage Message>
    void debug(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
               LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::debug, std::forward<Message>(message), site, category, logContext, privacy);
    }

    template <LogMessage Message>
    void info(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::info, std::forward<Message>(message), site, arguments);
    }
    template <LogMessage Message>
    void info(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
              LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::info, std::forward<Message>(message), site, category, logContext, privacy);
    }

    template <LogMessage Message>
    void warning(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::warning, std::forward<Message>(message), site, arguments);
    }
    template <LogMessage Message>
    void warning(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
                 LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::warning, std::forward<Message>(message), site, category, logContext, privacy);
    }

    template <LogMessage Message>
    void error(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::error, std::forward<Message>(message), site, arguments);
    }
    template <LogMessage Message>
    void error(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
               LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::error, std::forward<Message>(message), site, category, logContext, privacy);
    }

    template <LogMessage Message>
    void critical(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::critical, std::forward<Message>(message), site, arguments);
    }
    template <LogMessage Message>
    void critical(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
                  LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::critical, std::forward<Message>(message), site, category, logContext, privacy);
    }

private:
    /// One log call; refers to its arguments.
    struct LogCall {
        LogCall(const CallSite& callSite, const LogArguments& arguments)
            : category(arguments.category),
              error(arguments.error),
              pairs(arguments.context),
              privacy(arguments.privacy),
              site(callSite)
        {}
        LogCall(const CallSite& callSite, LogCategory callCategory, const LogContext& context,
                LogPrivacy requested)
            : category(callCategory),
              error(context.error),
              metadata(&context.metadata),
              privacy(requested),
              site(callSite)
        {}

        LogCategory category;
        LogError error;
        // The metadata: either the pairs or the map.
        std::span<const LogPair> pairs = {};
        const LogMetadata* metadata = nullptr;
        LogPrivacy privacy;
        CallSite site;
    };

    static bool isFiltered(LogLevel level)
    {
        // Debug first: most filtered-out lines are debug lines.
        return (level == LogLevel::debug &&
                !LoggingConfig::isDebugLoggingEnabled.load(std::memory_order_relaxed)) ||
               !LoggingConfig::isLoggingEnabled.load(std::memory_order_relaxed);
    }

    /// Formats nothing if the call is filtered out.
    template <LogMessage Message, typename... Arguments>
    void log(LogLevel level, Message&& message, const CallSite& site, const Arguments&... arguments)
    {
        if (isFiltered(level))
            return;
        const LogCall call(site, arguments...);
        if constexpr (std::invocable<Message>)
            write(level, std::invoke(std::forward<Message>(message)), call);
        else
            write(level, message, call);
    }

    void write(LogLevel level, std::string_view message, const LogCall& call);
    const Platform::LogHandle& osLog(LogCategory category);

    std::mutex m_loggerCacheLock;
    std::array<std::unique_ptr<const Platform::LogHandle>, allLogCategories.size()> m_loggerCache;
    const std::unique_ptr<LogSink> m_sink;
    const std::optional<std::string> m_bundleIdentifier;
};

} // namespace Core
