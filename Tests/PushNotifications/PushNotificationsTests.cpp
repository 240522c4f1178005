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

    template <typename Value>
    std::optional<Value> resultOf(Task<Value> task)
    {
        std::optional<Value> result;
        const auto await = [&](Task<Value> awaited) -> Task<void> { result = co_await std::move(awaited); };
        spawn(scheduler.mainQueue, await(std::move(task)));
        scheduler.runUntilIdle();
        return result;
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
    const auto withAlert = [](PropertyList alert) {
        return Dictionary{{"aps", Dictionary{{"alert", std::move(alert)}}}};
    };
    const std::string none = "{body=, title=}";
    // The payload, the stored record up to the date, its keys, and the logged context.
    const std::tuple<Dictionary, std::string, std::string, std::string> cases[] = {
        {withAlert(Dictionary{{"title", "T"}, {"body", "B"}, {"subtitle", "ignored"}}),
         R"("title":"T","body":"B",)", R"("aps")", "{body=B, title=T}"},
        {withAlert("Hello"), R"("title":"Hello",)", R"("aps")", "{body=, title=Hello}"},
        {withAlert(Dictionary{{"title", ""}, {"body", ""}}), R"("title":"","body":"",)", R"("aps")", none},
        {withAlert(Dictionary{{"title", 5}, {"body", true}}), "", R"("aps")", none},
        {withAlert(5), "", R"("aps")", none},
        {{{"aps", Dictionary{{"content-available", 1}}}, {"own", 1}}, "", R"("aps","own")", none},
        {{{"aps", "text"}, {"alert", "not here"}}, "", R"("alert","aps")", none},
        {{}, "", "", none},
    };
    scheduler.advance(60s);
    for (const auto& [payload, texts, keys, context] : cases) {
        SCOPED_TRACE(PropertyList(payload).description());
        const std::string record = "{" + texts + R"("date":60,"userInfoKeys":[)" + keys + "]}";
        domains.standard().removeObject(StorageKeys::processedNotificationPayloads);
        scheduler.runUntilIdle();
        announced.clear();
        std::vector<BackgroundFetchResult> results;
        processor.processRemoteNotification(payload, [&](auto result, bool isStored) {
            EXPECT_TRUE(isStored);
            EXPECT_EQ(history(), "[" + record + "]") << "completed before it was stored";
            results.push_back(result);
        });
        EXPECT_EQ(results, std::vector{BackgroundFetchResult::newData});
        EXPECT_TRUE(announced.empty()) << "posted before the call returned";
        EXPECT_EQ(log.takeText(),
                  "info notifications Processed remote notification | context=" + context + "\n");
        scheduler.runUntilIdle();
        ASSERT_EQ(announced.size(), 1U);
        EXPECT_EQ(announced[0].userInfo, payload);
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
    EXPECT_EQ(log.takeText(),
              "info notifications Processed notification from center | context={body=, title=T}\n"
              "info notifications Processed notification from center | context={body=B, title=}\n");
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
        adapter.willPresent({"T", "", {{"k", 1}}, date}, [&](unsigned options, bool isStored) {
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
    for (const int value : {0, 1, 2, 3, 4}) {
        userCenter.status = AuthorizationStatus(value);
        EXPECT_EQ(resultOf(manager.currentStatus()), userCenter.status);
        EXPECT_EQ(resultOf(manager.isAuthorized()), userCenter.status == AuthorizationStatus::authorized);
    }
    const std::tuple<bool, std::optional<Error>, bool, std::string> cases[] = {
        {true, {}, true, "info notifications Notification permission granted\n"},
        {false, {}, false, "info notifications Notification permission denied\n"},
        {true, Error{"T", "D", 3, "no", {}}, false, // Although the user has granted it.
         "error notifications Notification permission request failed | "
         "error={type=T, domain=D, code=3, description=no}\n"},
    };
    for (const auto& [willGrant, error, expected, line] : cases) {
        userCenter.status = AuthorizationStatus::notDetermined;
        userCenter.willGrant = willGrant;
        userCenter.error = error;
        EXPECT_EQ(resultOf(manager.requestAuthorization()), expected);
        EXPECT_EQ(userCenter.requestedOptions, 7U);
        EXPECT_EQ(log.takeText(), line);
    }
}

TEST_F(PushTest, StoresLogsAndUploadsTokenOncePerRegistration)
{
    FakeURLSession session(scheduler.utilityQueue);
    FakeUserDefaults store;
    OutcomeRecorder outcomes({store, scheduler, scheduler.mainQueue, scheduler});
    RemoteNotificationHandler handler({logger, domains, *this, session, scheduler.utilityQueue, outcomes});
    const Data token{std::byte{0x00}, std::byte{0xab}, std::byte{0x10}};
    const std::string path = "apis/mdm/backend/device-api/v1/device/apple/devices/";
    const auto uploadFailed = [](int code, const std::string& description) {
        return "error notifications Device token upload failed | error={type=Core.APIError, "
               "domain=Core.APIError, code=" +
               std::to_string(code) + ", description=" + description + "}\n";
    };
    const auto response = [](int status) { return URLResponse{{}, HTTPURLResponse{status, {}}}; };
    using enum Outcome::Result;
    using Kind = Outcome::Kind;
    const std::string uploaded = "info notifications Device token uploaded to backend\n";
    const std::string skipped = "info notifications Skipping token upload: no device ID in managed config\n";
    using MaybeText = std::optional<std::string>;
    // The device, the outcome of the request, the lines after that of the registration, and the recorded
    // outcome without its time.
    const std::tuple<MaybeText, URLSession::Outcome, std::string, std::optional<Outcome>> cases[] = {
        {"DEV-123", response(204), uploaded, Outcome{succeeded, Kind::none, 204}},
        {"a%2Fb%2e%2E/%41", response(200), uploaded, Outcome{succeeded, Kind::none, 200}},
        {"DEV-123", response(500),
         "default network API HTTP error | context={responseBody=, statusCode=500}\n" +
             uploadFailed(1, "HTTP error: 500"),
         Outcome{failed, Kind::status, 500}},
        {"DEV-123", URLError(URLError::Code::timedOut, "canary"),
         "error network API request failed | error={type=Platform.URLError, domain=NSURLErrorDomain, "
         "code=-1001, description=canary}\n" +
             uploadFailed(2, "Network error: canary"),
         Outcome{failed, Kind::network, -1001}},
        {"a\0b"s, response(200),
         uploadFailed(0, "Invalid base URL: https://acme.corp" + path + "a\0b/token"s),
         Outcome{failed, Kind::address, 0}},
        {"", response(200), skipped, {}},
        {std::nullopt, response(200), skipped, {}},
    };
    for (const auto& [deviceId, outcome, laterLines, recorded] : cases) {
        SCOPED_TRACE(laterLines);
        session.requests.clear();
        store.values.clear();
        session.outcome = outcome;
        configuredDeviceId = deviceId;
        handler.didRegisterForRemoteNotifications(token);
        EXPECT_TRUE(session.requests.empty()) << "started on the caller's queue";
        EXPECT_EQ(handler.storedDeviceToken(), "00ab10");
        scheduler.runUntilIdle();
        EXPECT_EQ(log.takeText(),
                  "info notifications Remote notifications registered | context={tokenLength=3}\n" +
                      laterLines);
        scheduler.advance(OutcomeRecorder::interval);
        Outcomes stored = storedOutcomes(store);
        for (auto& [subject, last] : stored)
            last.time = {};
        EXPECT_EQ(stored, recorded ? Outcomes({{Outcome::Subject::upload, *recorded}}) : Outcomes());
        const bool isRequested = recorded && recorded->kind != Kind::address;
        ASSERT_EQ(session.requests.size(), isRequested ? 1U : 0U);
        if (isRequested) {
            EXPECT_EQ(session.requests[0].url, "https://acme.corp/" + path + *deviceId + "/token");
            EXPECT_EQ(session.requests[0].httpMethod, "POST");
            EXPECT_EQ(textOf(*session.requests[0].httpBody), R"({"token":"00ab10"})");
        }
    }
    handler.didRegisterForRemoteNotifications({});
    EXPECT_EQ(handler.storedDeviceToken(), "");
    log.takeText();
    Core::LoggingConfig::setVerboseLoggingEnabled(true);
    handler.didRegisterForRemoteNotifications(token);
    handler.didFailToRegister({"T", "D", 3, "no", {}});
    Core::LoggingConfig::setVerboseLoggingEnabled(false);
    EXPECT_EQ(log.takeText(), "info notifications Remote notifications registered | context={tokenLength=3}\n"
                              "debug notifications APNs device token: 00ab10\n" +
                                  skipped +
                                  "error notifications Remote notification registration failed | "
                                  "error={type=T, domain=D, code=3, description=no}\n");
}

} // namespace
