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
    struct Case {
        const char* name;
        LogContext context;
        std::string expected;
    };
    const std::vector<Case> cases{
        {"message only", {}, "message"},
        {"metadata sorted by key",
         {.metadata = {{"statusCode", "500"}, {"responseBody", "No response body"}}},
         "message | context={responseBody=No response body, statusCode=500}"},
        {"metadata not escaped", {.metadata = {{"a=b", "c, d | }"}}}, "message | context={a=b=c, d | }}"},
        {"error",
         {.error = bridgedWithReason(std::nullopt)},
         "message | error={type=Sample.CodedError, domain=Sample.CodedError, code=7, description=it broke}"},
        {"empty reason",
         {.error = bridgedWithReason("")},
         "message | error={type=Sample.CodedError, domain=Sample.CodedError, code=7, description=it broke}"},
        {"error with reason and metadata",
         {.error = bridgedWithReason("rust"), .metadata = {{"k", ""}}},
         "message | error={type=Sample.CodedError, domain=Sample.CodedError, code=7, description=it broke, "
         "reason=rust} | context={k=}"},
        {"POSIX error",
         {.error = bridge(std::system_error(ENOENT, std::generic_category(), "opening"))},
         "message | error={type=std.system_error, domain=NSPOSIXErrorDomain, code=2, description=opening: No "
         "such file or directory}"},
        {"POSIX error of the system",
         {.error = bridge(std::system_error(EPERM, std::system_category(), "a"))},
         "message | error={type=std.system_error, domain=NSPOSIXErrorDomain, code=1, description=a: "
         "Operation "
         "not permitted}"},
        {"error of another category",
         {.error = bridge(std::system_error(1, std::iostream_category(), "a"))},
         "message | error={type=std.system_error, domain=iostream, code=1, description=a: iostream error}"},
    };
    for (const Case& row : cases) {
        logger.info("message", "label()", LogCategory::general, row.context);
        EXPECT_EQ(log.takeLines(), std::vector{row.expected}) << row.name;
    }
}

TEST_F(LoggerTest, LogArgumentsFormatLikeLogContext)
{
    logger.warning(
        "m", "f()",
        {.error = std::runtime_error("it broke"), .context = {{"b", std::string("2")}, {"a", "1"}}});
    logger.warning("m", "f()",
                   {.context = {{"i", "9"},
                                {"h", "8"},
                                {"g", "7"},
                                {"f", "6"},
                                {"e", "5"},
                                {"d", "4"},
                                {"c", "3"},
                                {"b", "2"},
                                {"a", std::string(2000, 'x')}}});
    EXPECT_EQ(log.takeLines(),
              (std::vector<std::string>{
                  "m | error={type=std.runtime_error, domain=std.runtime_error, code=0, "
                  "description=it broke} | context={a=1, b=2}",
                  "m | context={a=" + std::string(2000, 'x') + ", b=2, c=3, d=4, e=5, f=6, g=7, h=8, i=9}"}));
}

TEST_F(LoggerTest, SourceSegmentIsLastAndNamesFileLineAndFunction)
{
    LoggingConfig::includeSourceContext = true;
    logger.error("m", "upload(tokenString:)", LogCategory::network, LogContext{.metadata = {{"k", "v"}}});
    const int line = __LINE__ - 1;
    EXPECT_EQ(log.takeLines(), std::vector{"m | context={k=v} | source=Core/LoggerTests.cpp:" +
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
    EXPECT_EQ(logAtAllLevels(),
              (std::vector{LogType::info, LogType::default_, LogType::error, LogType::fault}));
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
    struct Case {
        LogPrivacy call;
        LogPrivacy byDefault;
        LogVisibility expected;
    };
    for (const Case& row : {
             Case{LogPrivacy::inherit, LogPrivacy::private_, LogVisibility::private_},
             Case{LogPrivacy::inherit, LogPrivacy::public_, LogVisibility::public_},
             Case{LogPrivacy::inherit, LogPrivacy::inherit, LogVisibility::private_},
             Case{LogPrivacy::public_, LogPrivacy::private_, LogVisibility::public_},
             Case{LogPrivacy::private_, LogPrivacy::public_, LogVisibility::private_},
         }) {
        LoggingConfig::defaultPrivacy = row.byDefault;
        EXPECT_EQ(LoggingConfig::usePublicPrivacy(), row.byDefault == LogPrivacy::public_);
        logger.info("m", "f()", {.privacy = row.call});
        EXPECT_EQ(log.takeEntries().at(0).visibility, row.expected);
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

    std::vector<std::string> handles;
    for (const auto& entry : log.takeEntries())
        handles.push_back(entry.subsystem + "/" + entry.category);
    EXPECT_EQ(handles, (std::vector<std::string>{"com.example.app/network", "com.example.app/network",
                                                 "override/sso", "unknown/general"}));
}

TEST_F(LoggerTest, ConcurrentFirstCallsWriteEveryLine)
{
    constexpr int threadCount = 8;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < threadCount; ++i) {
            threads.emplace_back([&] {
                for (const LogCategory category : allLogCategories)
                    logger.info("m", "f()", {.category = category});
            });
        }
    }
    std::map<std::string, int> countByCategory;
    for (const auto& entry : log.takeEntries())
        ++countByCategory[entry.category];
    EXPECT_EQ(countByCategory.size(), allLogCategories.size());
    for (const auto& [category, count] : countByCategory)
        EXPECT_EQ(count, threadCount) << category;
    EXPECT_EQ(logCategory("Network"), std::nullopt);
    EXPECT_EQ(logCategory("ssoExt"), std::nullopt);
    for (const LogCategory category : allLogCategories)
        EXPECT_EQ(logCategory(rawValue(category)), category);
}

} // namespace
