#include "Core/ErrorBridging.h"
#include "Core/Logger.h"

#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <system_error>
#include <thread>

using namespace Core;
using Platform::LogType;
using Platform::LogVisibility;
using Lines = std::vector<std::string>;

namespace Sample {
class CodedError : public Platform::ErrorException {
public:
    CodedError() : ErrorException("it broke") {}
    [[nodiscard]] std::int64_t errorCode() const override { return 7; }
    [[nodiscard]] std::optional<std::string> failureReason() const override { return reason; }
    std::optional<std::string> reason;
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

Platform::Error bridgedWithReason(std::optional<std::string> reason)
{
    Sample::CodedError error;
    error.reason = std::move(reason);
    return Core::bridge(error);
}

TEST_F(LoggerTest, LineContainsOnlyPresentSegments)
{
    const std::string sample =
        "error={type=Sample.CodedError, domain=Sample.CodedError, code=7, description=it broke";
    const auto systemError = [](int code, const std::error_category& category) {
        return bridge(std::system_error(code, category, "opening"));
    };
    const struct {
        const char* name;
        LogContext context;
        /// What follows the message.
        std::string expected;
    } cases[] = {
        {"message only", {}, ""},
        {"metadata sorted by key",
         {.metadata = {{"statusCode", "500"}, {"responseBody", "No response body"}}},
         " | context={responseBody=No response body, statusCode=500}"},
        {"metadata not escaped", {.metadata = {{"a=b", "c, d | }"}}}, " | context={a=b=c, d | }}"},
        {"error", {.error = bridgedWithReason(std::nullopt)}, " | " + sample + "}"},
        {"empty reason", {.error = bridgedWithReason("")}, " | " + sample + "}"},
        {"error with reason and metadata",
         {.error = bridgedWithReason("rust"), .metadata = {{"k", ""}}},
         " | " + sample + ", reason=rust} | context={k=}"},
        {"POSIX error",
         {.error = systemError(ENOENT, std::generic_category())},
         " | error={type=std.system_error, domain=NSPOSIXErrorDomain, code=2, description=opening: No such "
         "file or directory}"},
        {"POSIX error of the system",
         {.error = systemError(EPERM, std::system_category())},
         " | error={type=std.system_error, domain=NSPOSIXErrorDomain, code=1, description=opening: Operation "
         "not permitted}"},
        {"error of another category",
         {.error = systemError(1, std::iostream_category())},
         " | error={type=std.system_error, domain=iostream, code=1, description=opening: iostream error}"},
    };
    for (const auto& [name, context, expected] : cases) {
        logger.info("message", "label()", LogCategory::general, context);
        EXPECT_EQ(log.takeLines(), Lines{"message" + expected}) << name;
    }
}

TEST_F(LoggerTest, LogArgumentsFormatLikeLogContext)
{
    const std::string large(2000, 'x');
    logger.warning(
        "m", "f()",
        {.error = std::runtime_error("it broke"), .context = {{"b", std::string("2")}, {"a", "1"}}});
    logger.warning("m", "f()",
                   {.context = {LogPair("i", "9"), LogPair("h", "8"), LogPair("g", "7"), LogPair("f", "6"),
                                LogPair("e", "5"), LogPair("d", "4"), LogPair("c", "3"), LogPair("b", "2"),
                                LogPair("a", large)}});
    EXPECT_EQ(log.takeLines(),
              (Lines{"m | error={type=std.runtime_error, domain=std.runtime_error, code=0, "
                     "description=it broke} | context={a=1, b=2}",
                     "m | context={a=" + large + ", b=2, c=3, d=4, e=5, f=6, g=7, h=8, i=9}"}));
}

TEST_F(LoggerTest, SourceSegmentIsLastAndNamesFileLineAndFunction)
{
    LoggingConfig::includeSourceContext = true;
    logger.error("m", "upload(tokenString:)", LogCategory::network, LogContext{.metadata = {{"k", "v"}}});
    const int line = __LINE__ - 1;
    EXPECT_EQ(log.takeLines(), Lines{"m | context={k=v} | source=Core/LoggerTests.cpp:" +
                                     std::to_string(line) + " upload(tokenString:)"});
}

TEST_F(LoggerTest, LevelsMapToLogTypesAndDebugHasItsOwnSwitch)
{
    int evaluated = 0;
    const auto message = [&] {
        ++evaluated;
        return std::string("m");
    };
    const auto logAtAllLevels = [&] {
        evaluated = 0;
        logger.debug(message, "f()");
        logger.info(message, "f()");
        logger.warning(message, "f()");
        logger.error(message, "f()");
        logger.critical(message, "f()", LogCategory::sso, LogContext{});
        std::vector<LogType> types;
        for (const auto& entry : log.takeEntries())
            types.push_back(entry.type);
        return types;
    };
    const std::vector withoutDebug{LogType::info, LogType::default_, LogType::error, LogType::fault};
    EXPECT_EQ(logAtAllLevels(), withoutDebug);
    EXPECT_EQ(evaluated, 4);

    LoggingConfig::setVerboseLoggingEnabled(true);
    EXPECT_EQ(logAtAllLevels().front(), LogType::debug);
    EXPECT_EQ(evaluated, 5);

    LoggingConfig::isLoggingEnabled = false;
    EXPECT_TRUE(logAtAllLevels().empty());
    EXPECT_EQ(evaluated, 0);
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
    std::map<std::string, int> countByCategory;
    for (const auto& entry : log.takeEntries())
        ++countByCategory[entry.category];
    for (const LogCategory category : allLogCategories) {
        EXPECT_EQ(countByCategory[std::string(rawValue(category))], 8);
        EXPECT_EQ(logCategory(rawValue(category)), category);
    }
    EXPECT_EQ(logCategory("Network"), std::nullopt);
    EXPECT_EQ(logCategory("ssoExt"), std::nullopt);
}

} // namespace
