#include "Core/ErrorBridging.h"
#include "Core/Logger.h"

#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <thread>

using namespace Core;
using Platform::LogVisibility;
using Lines = std::vector<std::string>;

namespace Sample {
class CodedError : public Platform::ErrorException {
public:
    explicit CodedError(std::optional<std::string> why = {})
        : ErrorException("it broke"), m_reason(std::move(why))
    {}
    [[nodiscard]] std::int64_t errorCode() const override { return 7; }
    [[nodiscard]] std::optional<std::string> failureReason() const override { return m_reason; }

private:
    std::optional<std::string> m_reason;
};
} // namespace Sample

namespace {

/// Records log entries and resets the process-wide switches afterwards.
class LoggerTest : public testing::Test {
protected:
    ~LoggerTest() override
    {
        LoggingConfig::isLoggingEnabled = true;
        LoggingConfig::isDebugLoggingEnabled = false;
        LoggingConfig::includeSourceContext = false;
        LoggingConfig::defaultPrivacy = LogPrivacy::private_;
        LoggingConfig::subsystem = std::shared_ptr<const std::string>();
    }

    RecordingUnifiedLog log;
    Logger logger{std::make_unique<OSLogSink>(log), "com.example.app"};
};

TEST_F(LoggerTest, LineContainsOnlyPresentSegments)
{
    const std::string sample =
        "error={type=Sample.CodedError, domain=Sample.CodedError, code=7, description=it broke";
    const std::string posix = " | error={type=std.system_error, domain=NSPOSIXErrorDomain, ";
    const auto systemError = [](int code, const std::error_category& category) {
        return bridge(std::system_error(code, category, "opening"));
    };
    // What follows the message.
    const std::pair<LogContext, std::string> cases[] = {
        {{}, ""},
        {{.metadata = {{"statusCode", "500"}, {"responseBody", "No response body"}}},
         " | context={responseBody=No response body, statusCode=500}"},
        {{.metadata = {{"a=b", "c, d | }"}}}, " | context={a=b=c, d | }}"},
        {{.error = bridge(Sample::CodedError())}, " | " + sample + "}"},
        {{.error = bridge(Sample::CodedError(""))}, " | " + sample + "}"},
        {{.error = bridge(Sample::CodedError("rust")), .metadata = {{"k", ""}}},
         " | " + sample + ", reason=rust} | context={k=}"},
        {{.error = systemError(ENOENT, std::generic_category())},
         posix + "code=2, description=opening: No such file or directory}"},
        {{.error = systemError(EPERM, std::system_category())},
         posix + "code=1, description=opening: Operation not permitted}"},
        {{.error = systemError(1, std::iostream_category())},
         " | error={type=std.system_error, domain=iostream, code=1, description=opening: iostream error}"},
    };
    for (const auto& [context, expected] : cases) {
        logger.info("message", "label()", LogCategory::general, context);
        EXPECT_EQ(log.takeLines(), Lines{"message" + expected});
    }
}

TEST_F(LoggerTest, LogArgumentsFormatLikeLogContextAndTheSourceIsLast)
{
    const std::string large(2000, 'x');
    logger.warning("m", "f()",
                   {.error = std::runtime_error("it broke"), .context = {{"b", "2"}, {"a", "1"}}});
    logger.warning("m", "f()",
                   {.context = {LogPair("i", "9"), LogPair("h", "8"), LogPair("g", "7"), LogPair("f", "6"),
                                LogPair("e", "5"), LogPair("d", "4"), LogPair("c", "3"), LogPair("b", "2"),
                                LogPair("a", large)}});
    LoggingConfig::includeSourceContext = true;
    const std::string line = std::to_string(__LINE__ + 1);
    logger.warning("m", "upload(tokenString:)", {.context = {{"k", "v"}}});
    EXPECT_EQ(log.takeLines(),
              (Lines{"m | error={type=std.runtime_error, domain=std.runtime_error, code=0, "
                     "description=it broke} | context={a=1, b=2}",
                     "m | context={a=" + large + ", b=2, c=3, d=4, e=5, f=6, g=7, h=8, i=9}",
                     "m | context={k=v} | source=Core/LoggerTests.cpp:" + line + " upload(tokenString:)"}));
}

TEST_F(LoggerTest, LevelsMapToLogTypesAndDebugHasItsOwnSwitch)
{
    const std::string debug = "debug general m\n";
    const std::string others = "info general m\ndefault general m\nerror general m\nfault sso m\n";
    const std::tuple<bool, bool, std::string> cases[] = {
        {true, false, others}, {true, true, debug + others}, {false, true, ""}};
    for (const auto& [isEnabled, isVerbose, expected] : cases) {
        LoggingConfig::isLoggingEnabled = isEnabled;
        LoggingConfig::setVerboseLoggingEnabled(isVerbose);
        std::ptrdiff_t evaluated = 0;
        const auto message = [&] {
            ++evaluated;
            return std::string("m");
        };
        logger.debug(message, "f()");
        logger.info(message, "f()");
        logger.warning(message, "f()");
        logger.error(message, "f()");
        logger.critical(message, "f()", LogCategory::sso, LogContext{});
        EXPECT_EQ(log.takeText(), expected);
        EXPECT_EQ(evaluated, std::count(expected.begin(), expected.end(), '\n'));
    }
}

TEST_F(LoggerTest, CallPrivacyOverridesDefaultPrivacy)
{
    using enum LogPrivacy;
    constexpr auto isPublic = LogVisibility::public_;
    constexpr auto isPrivate = LogVisibility::private_;
    const std::tuple<LogPrivacy, LogPrivacy, LogVisibility> cases[] = {{inherit, private_, isPrivate},
                                                                       {inherit, public_, isPublic},
                                                                       {inherit, inherit, isPrivate},
                                                                       {public_, private_, isPublic},
                                                                       {private_, public_, isPrivate}};
    for (const auto& [ofCall, byDefault, expected] : cases) {
        LoggingConfig::defaultPrivacy = byDefault;
        EXPECT_EQ(LoggingConfig::usePublicPrivacy(), byDefault == public_);
        logger.info("m", "f()", {.privacy = ofCall});
        EXPECT_EQ(log.takeEntries().at(0).visibility, expected);
    }
    LoggingConfig::defaultPrivacy = LogPrivacy::inherit;
    LoggingConfig::setUsePublicPrivacy(false);
    EXPECT_EQ(LoggingConfig::defaultPrivacy, LogPrivacy::private_);
}

TEST_F(LoggerTest, LogHandleKeepsItsFirstSubsystem)
{
    logger.info("m", "f()", {.category = LogCategory::network});
    LoggingConfig::subsystem = std::make_shared<const std::string>("override");
    logger.info("m", "f()", {.category = LogCategory::network});
    logger.info("m", "f()", {.category = LogCategory::sso});
    LoggingConfig::subsystem = std::shared_ptr<const std::string>();
    Logger anonymous(std::make_unique<OSLogSink>(log), std::nullopt);
    anonymous.info("m", "f()");

    Lines handles;
    for (const auto& entry : log.takeEntries())
        handles.push_back(entry.subsystem + "/" + entry.category);
    EXPECT_EQ(handles, (Lines{"com.example.app/network", "com.example.app/network", "override/sso",
                              "unknown/general"}));
}

TEST_F(LoggerTest, ConcurrentFirstCallsWriteEveryLine)
{
    std::vector<std::jthread> threads(8);
    for (std::jthread& thread : threads)
        thread = std::jthread([&] {
            for (const LogCategory category : allLogCategories)
                logger.info("m", "f()", {.category = category});
        });
    threads.clear();
    EXPECT_EQ(log.takeEntries().size(), 8 * allLogCategories.size());
    for (const LogCategory category : allLogCategories)
        EXPECT_EQ(logCategory(rawValue(category)), category);
    for (const char* other : {"Network", "ssoExt"})
        EXPECT_EQ(logCategory(other), std::nullopt);
}

} // namespace
