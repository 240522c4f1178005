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

/// An error that a call refers to for as long as it lasts; looked at only when the line is written.
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

/// The labelled arguments of a call that names its error and metadata one by one. They refer to what the call
/// is given, so a call whose line is filtered out copies nothing. For use within one call only.
struct LogArguments {
    LogCategory category = LogCategory::general;
    LogError error = {};
    std::initializer_list<LogPair> context = {};
    LogPrivacy privacy = LogPrivacy::inherit;
};

/// The logging front end of the application: filters a call, renders its line and hands it to the sink.
///
/// Threads: any, concurrently; the message is evaluated and the line written on the calling thread, outside
/// the only lock. Errors: none; nothing throws.
///
///     logger.info("Configuration manager initialized", "setupManagedConfiguration()");
///     logger.error("API request failed", "execute(_:)",
///                  {.category = LogCategory::network, .error = error});
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
    /// One call, referring to the arguments of the operation.
    struct LogCall {
        LogCall(const CallSite& callSite, const LogArguments& arguments)
            : category(arguments.category),
              error(arguments.error),
              pairs(arguments.context),
              privacy(arguments.privacy),
              site(callSite)
        {}
        LogCall(const CallSite& callSite, LogCategory ofCategory, const LogContext& context,
                LogPrivacy requested)
            : category(ofCategory),
              error(context.error),
              metadata(&context.metadata),
              privacy(requested),
              site(callSite)
        {}

        LogCategory category;
        LogError error;
        // Either the pairs or the map.
        std::span<const LogPair> pairs = {};
        const LogMetadata* metadata = nullptr;
        LogPrivacy privacy;
        CallSite site;
    };

    static bool isFiltered(LogLevel level)
    {
        // Debug lines come first: they are what is filtered out mostly, by their switch alone.
        return (level == LogLevel::debug &&
                !LoggingConfig::isDebugLoggingEnabled.load(std::memory_order_relaxed)) ||
               !LoggingConfig::isLoggingEnabled.load(std::memory_order_relaxed);
    }

    /// A call that is filtered out has put nothing together.
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
