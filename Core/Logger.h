#pragma once

#include "Core/LogModel.h"

#include <concepts>
#include <functional>
#include <mutex>
#include <type_traits>
#include <utility>

namespace Core {

/// Where finished lines go. Threads: any, concurrently.
class LogSink {
public:
    virtual ~LogSink() = default;
    /// Writes one entry. `privacy` is resolved: `public_` or `private_`, and applies to the whole line.
    virtual void write(std::string_view line, LogLevel level, LogPrivacy privacy,
                       const Platform::LogHandle& log) = 0;
};

/// Writes to the system's log.
class OSLogSink final : public LogSink {
public:
    explicit OSLogSink(Platform::UnifiedLog& unifiedLog) : m_unifiedLog(unifiedLog) {}
    void write(std::string_view line, LogLevel level, LogPrivacy privacy,
               const Platform::LogHandle& log) override;

private:
    Platform::UnifiedLog& m_unifiedLog;
};

/// A text, or a callable that makes one and is called only when the line is written.
template <typename Message>
concept LogMessage = std::convertible_to<Message, std::string_view> ||
    (std::invocable<Message>&& std::convertible_to<std::invoke_result_t<Message>, std::string_view>);

/// The labelled arguments of a call that names its error and metadata one by one.
struct LogArguments {
    LogCategory category = LogCategory::general;
    std::optional<Platform::Error> error = {};
    LogMetadata context = {};
    LogPrivacy privacy = LogPrivacy::inherit;
};

/// The logging front end of the application: filters a call, renders its line and hands it to the sink.
///
/// Threads: any, concurrently; the message is evaluated and the line written on the calling thread, outside
/// the only lock. Errors: none; nothing throws.
///
///     logger.info("Configuration manager initialized", "setupManagedConfiguration()");
///     logger.error("API request failed", "execute(_:)",
///                  {.category = LogCategory::network, .error = Platform::bridge(error)});
///     logger.debug([&] { return "token " + token; }, "didRegister(deviceToken:)");
///
/// Each operation exists in two forms: with `LogArguments`, and with a category and a ready `LogContext`.
class Logger {
public:
    /// `bundleIdentifier` names the subsystem unless `LoggingConfig::subsystem` does; with neither it is
    /// "unknown".
    Logger(std::unique_ptr<LogSink> sink, std::optional<std::string> bundleIdentifier);

    /// The logger of this process, made on first use and never destroyed.
    static Logger& shared();

    template <LogMessage Message>
    void debug(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::debug, std::forward<Message>(message), LogCall(site, arguments));
    }
    template <LogMessage Message>
    void debug(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
               LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::debug, std::forward<Message>(message), LogCall(site, category, logContext, privacy));
    }

    template <LogMessage Message>
    void info(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::info, std::forward<Message>(message), LogCall(site, arguments));
    }
    template <LogMessage Message>
    void info(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
              LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::info, std::forward<Message>(message), LogCall(site, category, logContext, privacy));
    }

    template <LogMessage Message>
    void warning(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::warning, std::forward<Message>(message), LogCall(site, arguments));
    }
    template <LogMessage Message>
    void warning(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
                 LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::warning, std::forward<Message>(message), LogCall(site, category, logContext, privacy));
    }

    template <LogMessage Message>
    void error(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::error, std::forward<Message>(message), LogCall(site, arguments));
    }
    template <LogMessage Message>
    void error(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
               LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::error, std::forward<Message>(message), LogCall(site, category, logContext, privacy));
    }

    template <LogMessage Message>
    void critical(Message&& message, CallSite site, const LogArguments& arguments = {})
    {
        log(LogLevel::critical, std::forward<Message>(message), LogCall(site, arguments));
    }
    template <LogMessage Message>
    void critical(Message&& message, CallSite site, LogCategory category, const LogContext& logContext,
                  LogPrivacy privacy = LogPrivacy::inherit)
    {
        log(LogLevel::critical, std::forward<Message>(message), LogCall(site, category, logContext, privacy));
    }

private:
    /// One call, referring to the arguments of the operation.
    struct LogCall {
        LogCall(const CallSite& callSite, const LogArguments& arguments)
            : category(arguments.category),
              error(arguments.error),
              metadata(arguments.context),
              privacy(arguments.privacy),
              site(callSite)
        {}
        LogCall(const CallSite& callSite, LogCategory ofCategory, const LogContext& context, LogPrivacy asked)
            : category(ofCategory),
              error(context.error),
              metadata(context.metadata),
              privacy(asked),
              site(callSite)
        {}

        LogCategory category;
        const std::optional<Platform::Error>& error;
        const LogMetadata& metadata;
        LogPrivacy privacy;
        const CallSite& site;
    };

    template <LogMessage Message>
    void log(LogLevel level, Message&& message, const LogCall& call)
    {
        if (!LoggingConfig::isLoggingEnabled.load(std::memory_order_relaxed))
            return;
        if (level == LogLevel::debug && !LoggingConfig::isDebugLoggingEnabled.load(std::memory_order_relaxed))
            return;
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
