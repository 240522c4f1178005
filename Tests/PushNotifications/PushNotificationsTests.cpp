#include "Core/APIClientConfigProvider.h"
#include "Core/Constants.h"
#include "Core/Logger.h"
#include "Platform/OutcomeRecorder.h"
#include "PushNotifications/NotificationDelegateAdapter.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "PushNotifications/NotificationPermissionManager.h"
#include "PushNotifications/RemoteNotificationHandler.h"
#include "Tests/Fakes/Bytes.h"
#include "Tests/Fakes/FakeURLSession.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/FakeUserNotificationCenter.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <gtest/gtest.h>

#include <limits>

using namespace PushNotifications;
using namespace Platform;
using namespace std::chrono_literals;
using namespace std::string_literals;
using Lines = std::vector<std::string>;
using Dictionary = PropertyList::Dictionary;
namespace StorageKeys = Core::Constants::StorageKeys;

namespace {

class PushTest : public testing::Test, public Core::APIClientConfigProvider {
protected:
    [[nodiscard]] std::optional<std::string> baseDomain() const override { return "https://acme.corp"; }
    [[nodiscard]] std::optional<std::string> apiKey() const override { return "key"; }
    [[nodiscard]] std::optional<std::string> deviceId() const override { return configuredDeviceId; }

    [[nodiscard]] std::string history() const
    {
        const auto data = domains.standard().data(StorageKeys::processedNotificationPayloads);
        return data ? textOf(*data) : "none";
    }

    ManualScheduler scheduler;
    RecordingUnifiedLog log;
    Core::Logger logger{std::make_unique<Core::OSLogSink>(log), "com.example"};
    NotificationCenter center;
    mutable FakeUserDefaultsDomains domains{center, scheduler.mainQueue};
    std::optional<std::string> configuredDeviceId = "DEV-123";

    NotificationPayloadProcessor processor{{logger, domains, center, scheduler.mainQueue, scheduler}};
    std::vector<ProcessedNotificationPayload> announced;
    NotificationCenter::Token observation = center.addObserver(
        NotificationPayloadProcessor::pushNotificationDidProcessPayload, nullptr, nullptr,
        [this](const Notification& note) {
            EXPECT_EQ(note.sender, nullptr);
            EXPECT_TRUE(scheduler.mainQueue.isRunning());
            announced.push_back(std::any_cast<ProcessedNotificationPayload>(note.userInfo.at("payload")));
        });
};

TEST_F(PushTest, StoresAnnouncesAndLogsRemotePayload)
{
    const Dictionary alert{{"title", "T"}, {"body", "B"}, {"subtitle", "ignored"}};
    struct Case {
        const char* name;
        Dictionary payload;
        std::string expectedRecord;
        std::string expectedContext;
    };
    const Case cases[] = {
        {"alert",
         {{"aps", Dictionary{{"alert", alert}}}, {"own", 1}},
         R"({"title":"T","body":"B","date":60,"userInfoKeys":["aps","own"]})",
         "{body=B, title=T}"},
        {"short alert",
         {{"aps", Dictionary{{"alert", "Hello"}}}},
         R"({"title":"Hello","date":60,"userInfoKeys":["aps"]})",
         "{body=, title=Hello}"},
        {"silent",
         {{"aps", Dictionary{{"content-available", 1}}}},
         R"({"date":60,"userInfoKeys":["aps"]})",
         "{body=, title=}"},
        {"empty strings",
         {{"aps", Dictionary{{"alert", Dictionary{{"title", ""}, {"body", ""}}}}}},
         R"({"title":"","body":"","date":60,"userInfoKeys":["aps"]})",
         "{body=, title=}"},
        {"title and body of the wrong type",
         {{"aps", Dictionary{{"alert", Dictionary{{"title", 5}, {"body", true}}}}}},
         R"({"date":60,"userInfoKeys":["aps"]})",
         "{body=, title=}"},
        {"alert of the wrong type",
         {{"aps", Dictionary{{"alert", 5}}}},
         R"({"date":60,"userInfoKeys":["aps"]})",
         "{body=, title=}"},
        {"aps of the wrong type",
         {{"aps", "text"}, {"alert", "not here"}},
         R"({"date":60,"userInfoKeys":["alert","aps"]})",
         "{body=, title=}"},
        {"empty", {}, R"({"date":60,"userInfoKeys":[]})", "{body=, title=}"},
    };
    scheduler.advance(60s);
    for (const Case& row : cases) {
        domains.standard().removeObject(StorageKeys::processedNotificationPayloads);
        scheduler.runUntilIdle();
        announced.clear();
        std::vector<BackgroundFetchResult> results;
        processor.processRemoteNotification(row.payload, [&](auto result, bool isStored) {
            EXPECT_TRUE(isStored);
            EXPECT_EQ(history(), "[" + row.expectedRecord + "]") << "completed before it was stored";
            results.push_back(result);
        });
        EXPECT_EQ(results, std::vector{BackgroundFetchResult::newData}) << row.name;
        EXPECT_TRUE(announced.empty()) << "posted before the call returned";
        EXPECT_EQ(log.takeLines(), Lines{"Processed remote notification | context=" + row.expectedContext})
            << row.name;
        scheduler.runUntilIdle();
        ASSERT_EQ(announced.size(), 1U) << row.name;
        EXPECT_EQ(announced[0].userInfo, row.payload) << row.name;
    }
}

TEST_F(PushTest, HistoryHoldsNewest100AndIsReplacedWhenDamaged)
{
    for (int i = 0; i < 101; ++i) {
        processor.processRemoteNotification({{"aps", Dictionary{{"alert", std::to_string(i)}}}},
                                            [](auto, bool) {});
        scheduler.advance(1s);
    }
    const auto all = processor.recentPayloadSummaries(1000);
    ASSERT_EQ(all.size(), 100U);
    EXPECT_EQ(all.front(), (NotificationPayloadProcessor::Summary{"100", std::nullopt, Date{100}}));
    EXPECT_EQ(all.back().title, "1");
    EXPECT_EQ(processor.recentPayloadSummaries(2).size(), 2U);
    EXPECT_TRUE(processor.recentPayloadSummaries(0).empty());
    EXPECT_DEATH(static_cast<void>(processor.recentPayloadSummaries(-1)), "a limit of at least 0");

    log.takeLines();
    for (const char* damaged :
         {"[", "{}", R"([{"date":1}])", R"([{"date":1,"userInfoKeys":[]},{"date":"x","userInfoKeys":[]}])"}) {
        domains.standard().set(StorageKeys::processedNotificationPayloads, bytesOf(damaged));
        EXPECT_TRUE(processor.recentPayloadSummaries(10).empty()) << damaged;
        EXPECT_TRUE(log.takeLines().empty()) << damaged;
    }
    processor.processRemoteNotification({}, [](auto, bool) {});
    EXPECT_EQ(processor.recentPayloadSummaries(10).size(), 1U);
}

TEST_F(PushTest, NotificationShownAndTappedIsProcessedTwice)
{
    NotificationDelegateAdapter adapter(processor);
    unsigned options = 0;
    adapter.willPresent({"T", "", {{"k", 1}}, Date{7}}, [&](unsigned requested, bool isStored) {
        EXPECT_TRUE(isStored);
        EXPECT_EQ(history(), R"([{"title":"T","date":7,"userInfoKeys":["k"]}])");
        options = requested;
    });
    EXPECT_EQ(options, PresentationOptions::badge | PresentationOptions::sound | PresentationOptions::list |
                           PresentationOptions::banner);
    std::string historyAtEnd;
    adapter.didReceive({{"", "B", {}, Date{8}}}, [&] { historyAtEnd += history(); });
    EXPECT_EQ(historyAtEnd, R"([{"body":"B","date":8,"userInfoKeys":[]},)"
                            R"({"title":"T","date":7,"userInfoKeys":["k"]}])");
    EXPECT_EQ(log.takeLines(), (Lines{"Processed notification from center | context={body=, title=T}",
                                      "Processed notification from center | context={body=B, title=}"}));
    scheduler.runUntilIdle();
    EXPECT_EQ(announced.size(), 2U);
}

TEST_F(PushTest, RecordThatCannotBeStoredIsStillAnnouncedAndLogged)
{
    NotificationDelegateAdapter adapter(processor);
    domains.fakeStandard().isWritable = false;
    processor.processRemoteNotification({}, [&](auto result, bool isStored) {
        EXPECT_EQ(result, BackgroundFetchResult::newData);
        EXPECT_FALSE(isStored);
    });
    constexpr Date endless{std::numeric_limits<double>::infinity()}; // JSON cannot represent it.
    for (const Date date : {Date{}, endless}) {
        adapter.willPresent({"T", "", {}, date}, [&](unsigned options, bool isStored) {
            EXPECT_EQ(options, 27U);
            EXPECT_FALSE(isStored);
        });
        domains.fakeStandard().isWritable = true;
    }
    scheduler.runUntilIdle();
    EXPECT_EQ(announced.size(), 3U);
    EXPECT_EQ(log.takeLines().size(), 3U);
    EXPECT_EQ(history(), "none");
}

TEST_F(PushTest, ReadsPermissionStatusAndRequestsAuthorization)
{
    FakeUserNotificationCenter userCenter(scheduler.utilityQueue);
    const NotificationPermissionManager manager(userCenter, logger);
    std::vector<int> results;
    const auto flow = [&](AuthorizationStatus status) -> Task<void> {
        userCenter.status = status;
        auto current = manager.currentStatus();
        results.push_back(static_cast<int>(co_await std::move(current)));
        auto authorized = manager.isAuthorized();
        results.push_back(co_await std::move(authorized) ? 1 : 0);
    };
    for (const auto status :
         {AuthorizationStatus::notDetermined, AuthorizationStatus::denied, AuthorizationStatus::authorized,
          AuthorizationStatus::provisional, AuthorizationStatus::ephemeral}) {
        spawn(scheduler.mainQueue, flow(status));
        scheduler.runUntilIdle();
    }
    EXPECT_EQ(results, (std::vector{0, 0, 1, 0, 2, 1, 3, 0, 4, 0}));
    EXPECT_TRUE(log.takeLines().empty());

    struct Case {
        bool willGrant;
        std::optional<Error> error;
        bool expected;
        const char* line;
    };
    const Case cases[] = {
        {true, std::nullopt, true, "Notification permission granted"},
        {false, std::nullopt, false, "Notification permission denied"},
        {true, Error{"T", "D", 3, "no", std::nullopt}, false, // Although the user has granted it.
         "Notification permission request failed | error={type=T, domain=D, code=3, description=no}"},
    };
    for (const Case& row : cases) {
        userCenter.status = AuthorizationStatus::notDetermined;
        userCenter.willGrant = row.willGrant;
        userCenter.error = row.error;
        std::optional<bool> granted;
        const auto requestOnce = [&]() -> Task<void> {
            auto request = manager.requestAuthorization();
            granted = co_await std::move(request);
        };
        spawn(scheduler.mainQueue, requestOnce());
        scheduler.runUntilIdle();
        EXPECT_EQ(granted, row.expected);
        EXPECT_EQ(userCenter.requestedOptions, 7U);
        EXPECT_EQ(log.takeLines(), Lines{row.line});
    }
}

TEST_F(PushTest, StoresLogsAndUploadsTokenOncePerRegistration)
{
    FakeURLSession session(scheduler.utilityQueue);
    FakeUserDefaults store;
    OutcomeRecorder outcomes({store, scheduler, scheduler.mainQueue, scheduler});
    RemoteNotificationHandler handler({logger, domains, *this, session, scheduler.utilityQueue, outcomes});
    const Data token{std::byte{0x00}, std::byte{0xab}, std::byte{0x10}};
    const Lines registered{"Remote notifications registered | context={tokenLength=3}"};
    const std::string failed =
        "Device token upload failed | error={type=Core.APIError, domain=Core.APIError, code=1, "
        "description=HTTP error: 500}";
    using Kind = Outcome::Kind;
    constexpr auto succeeded = Outcome::Result::succeeded;
    constexpr auto failure = Outcome::Result::failed;
    struct Case {
        std::optional<std::string> deviceId;
        std::variant<std::int64_t, URLError> response;
        Lines laterLines;
        /// The device's part of the requested URL; null without a request.
        const char* urlPart;
        /// Without its time.
        std::optional<Outcome> recorded;
    };
    const Case cases[] = {
        {"DEV-123",
         204,
         {"Device token uploaded to backend"},
         "DEV-123",
         Outcome{succeeded, Kind::none, 204}},
        {"a/../b", 200, {"Device token uploaded to backend"}, "b", Outcome{succeeded, Kind::none, 200}},
        {"a%2Fb%2e%2E/%2e%2e/%41",
         200,
         {"Device token uploaded to backend"},
         "a%2Fb%2e%2E/%2e%2e/%41",
         Outcome{succeeded, Kind::none, 200}},
        {"DEV-123",
         500,
         {"API HTTP error | context={responseBody=, statusCode=500}", failed},
         "DEV-123",
         Outcome{failure, Kind::status, 500}},
        {"DEV-123",
         URLError(URLError::Code::timedOut, "canary"),
         {"API request failed | error={type=Platform.URLError, domain=NSURLErrorDomain, code=-1001, "
          "description=canary}",
          "Device token upload failed | error={type=Core.APIError, domain=Core.APIError, code=2, "
          "description=Network error: canary}"},
         "DEV-123",
         Outcome{failure, Kind::network, -1001}},
        {"DEV 1",
         200,
         {"Device token upload failed | error={type=Core.APIError, domain=Core.APIError, code=0, "
          "description=Invalid "
          "base URL: https://acme.corpapis/mdm/backend/device-api/v1/device/apple/devices/DEV 1/token}"},
         nullptr,
         Outcome{failure, Kind::address}},
        {"a\0b"s,
         200,
         {"Device token upload failed | error={type=Core.APIError, domain=Core.APIError, code=0, "
          "description=Invalid base URL: https://acme.corpapis/mdm/backend/device-api/v1/device/apple/devices/a\0b/token}"s},
         nullptr,
         Outcome{failure, Kind::address}},
        {"", 200, {"Skipping token upload: no device ID in managed config"}, nullptr, {}},
        {std::nullopt, 200, {"Skipping token upload: no device ID in managed config"}, nullptr, {}},
    };
    for (const Case& row : cases) {
        session.requests.clear();
        store.values.clear();
        if (const auto* error = std::get_if<URLError>(&row.response))
            session.outcome = *error;
        else
            session.outcome = URLResponse{{}, HTTPURLResponse{std::get<std::int64_t>(row.response), {}}};
        configuredDeviceId = row.deviceId;
        handler.didRegisterForRemoteNotifications(token);
        EXPECT_TRUE(session.requests.empty()) << "started on the caller's queue";
        EXPECT_EQ(handler.storedDeviceToken(), "00ab10");
        scheduler.runUntilIdle();
        Lines expected = registered;
        expected.insert(expected.end(), row.laterLines.begin(), row.laterLines.end());
        Lines lines;
        for (const auto& entry : log.takeEntries()) {
            EXPECT_EQ(entry.category, entry.line.starts_with("API") ? "network" : "notifications");
            EXPECT_EQ(entry.type == LogType::error, entry.line.find("failed") != std::string::npos);
            lines.push_back(entry.line);
        }
        EXPECT_EQ(lines, expected);
        scheduler.advance(OutcomeRecorder::interval);
        ASSERT_EQ(storedOutcomes(store).size(), row.recorded ? 1U : 0U);
        if (row.recorded) {
            Outcome recorded = storedOutcomes(store).at(Outcome::Subject::upload);
            recorded.time = {};
            EXPECT_EQ(recorded, *row.recorded) << PropertyList(row.laterLines.back()).description();
        }
        ASSERT_EQ(session.requests.size(), row.urlPart != nullptr ? 1U : 0U);
        if (row.urlPart != nullptr) {
            EXPECT_EQ(session.requests[0].url,
                      "https://acme.corp/apis/mdm/backend/device-api/v1/device/apple/devices/" +
                          std::string(row.urlPart) + "/token");
            EXPECT_EQ(session.requests[0].httpMethod, "POST");
            EXPECT_EQ(textOf(*session.requests[0].httpBody), R"({"token":"00ab10"})");
        }
    }
    handler.didRegisterForRemoteNotifications({});
    EXPECT_EQ(handler.storedDeviceToken(), "");
    Core::LoggingConfig::setVerboseLoggingEnabled(true);
    log.takeLines();
    handler.didRegisterForRemoteNotifications(token);
    handler.didFailToRegister({"T", "D", 3, "no", std::nullopt});
    Core::LoggingConfig::setVerboseLoggingEnabled(false);
    const auto entries = log.takeEntries();
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[1].line, "APNs device token: 00ab10");
    EXPECT_EQ(entries[1].type, LogType::debug);
    EXPECT_EQ(entries[3].line,
              "Remote notification registration failed | error={type=T, domain=D, code=3, description=no}");
    EXPECT_EQ(entries[3].type, LogType::error);
}

} // namespace
