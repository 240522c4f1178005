#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/Push/DeviceNotificationCenter.h"
#include "Platform/Push/PendingNotifications.h"
#include "Platform/Push/ShellState.h"
#include "Tests/Fakes/FakeShell.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/FakeUserNotificationCenter.h"
#include "Tests/Fakes/ManualScheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace Platform;

namespace {

/// The device's notification center on fakes, and a delegate that records its calls.
struct Device : UserNotificationCenterDelegate {
    void willPresent(const UserNotification& notification, const PresentationCompletion& completion) override
    {
        presented.push_back(notification.title);
        completion(presentationOptions, isStoring);
    }
    void didReceive(const UserNotificationResponse& response, const std::function<void()>&) override
    {
        answered.push_back(response.notification.title);
    }

    ManualScheduler scheduler;
    FakeUserDefaults store;
    Push::ShellState state{store};
    FakePermissionPrompt prompt;
    FakeNotificationPresenter first;
    FakeNotificationPresenter second;
    Push::DeviceNotificationCenter center{{state, scheduler.mainQueue, &prompt, {&first, &second}}};
    unsigned presentationOptions = PresentationOptions::list;
    bool isStoring = true;
    std::vector<std::string> presented;
    std::vector<std::string> answered;
};

/// The contract for the device's notification center and for its fake.
void checkAuthorization(UserNotificationCenter& center, ManualScheduler& scheduler,
                        const std::function<void(bool)>& userAnswers, bool isGranted)
{
    const auto status = [&] {
        std::optional<AuthorizationStatus> answer;
        center.getNotificationSettings([&](NotificationSettings settings) {
            EXPECT_FALSE(answer) << "completed twice";
            answer = settings.authorizationStatus;
        });
        EXPECT_FALSE(answer) << "completed inside the call";
        scheduler.runUntilIdle();
        return answer;
    };
    EXPECT_EQ(status(), AuthorizationStatus::notDetermined);
    std::vector<bool> answers;
    const auto request = [&] {
        center.requestAuthorization(AuthorizationOptions::alert,
                                    [&](bool granted, const std::optional<Error>& error) {
                                        EXPECT_FALSE(error);
                                        answers.push_back(granted);
                                    });
    };
    request();
    request();
    EXPECT_TRUE(answers.empty()) << "completed inside the call";
    scheduler.runUntilIdle();
    userAnswers(isGranted);
    EXPECT_EQ(answers, (std::vector{isGranted, isGranted}));
    EXPECT_EQ(status(), isGranted ? AuthorizationStatus::authorized : AuthorizationStatus::denied);
    request();
    EXPECT_EQ(answers.size(), 2U) << "completed inside the call";
    scheduler.runUntilIdle();
    EXPECT_EQ(answers.size(), 3U) << "answered without asking again";
    EXPECT_EQ(answers.back(), isGranted);
}

TEST(UserNotificationCenterContractTest, AllRequestsReceiveTheUsersOneDecision)
{
    for (const bool isGranted : {true, false}) {
        Device device;
        checkAuthorization(
            device.center, device.scheduler,
            [&](bool answer) {
                ASSERT_EQ(device.prompt.requests.size(), 1U);
                device.prompt.requests.front()(answer);
            },
            isGranted);
        ManualScheduler scheduler;
        FakeUserNotificationCenter fake(scheduler.mainQueue);
        fake.willGrant = isGranted;
        checkAuthorization(
            fake, scheduler, [](bool) {}, isGranted);
    }
}

TEST(DeviceNotificationCenterTest, RequestFailsWithoutAScreen)
{
    Device device;
    Push::DeviceNotificationCenter center({device.state, device.scheduler.mainQueue, nullptr, {}});
    std::optional<Error> failure;
    center.requestAuthorization(AuthorizationOptions::alert, [&](bool isGranted, std::optional<Error> error) {
        EXPECT_FALSE(isGranted);
        failure = std::move(error);
    });
    device.scheduler.runUntilIdle();
    ASSERT_TRUE(failure);
    EXPECT_EQ(device.state.authorizationStatus(), AuthorizationStatus::notDetermined);
    EXPECT_TRUE(device.state.setAuthorizationStatus(AuthorizationStatus::denied));
    EXPECT_TRUE(device.state.setAuthorizationStatus(AuthorizationStatus::notDetermined));
    EXPECT_TRUE(device.store.values.empty());
    for (const int unknown : {-1, 5}) {
        device.store.set("NotificationAuthorization", unknown);
        EXPECT_EQ(device.state.authorizationStatus(), AuthorizationStatus::notDetermined);
    }
}

TEST(DeviceNotificationCenterTest, DeliversByPermissionAndForegroundState)
{
    struct Case {
        const char* name;
        AuthorizationStatus status;
        bool isActive;
        int workingPresenter;
        bool isPresented;
        std::optional<unsigned> shownOptions;
        std::optional<PushRefusal> refusal;
        bool isStoring = true;
        bool isReadable = true;
    };
    using enum AuthorizationStatus;
    constexpr unsigned all = 27;
    constexpr unsigned chosen = PresentationOptions::list;
    const Case cases[] = {
        {"not asked",
         notDetermined,
         true,
         1,
         false,
         {},
         PushRefusal{"the user has not allowed notifications yet"}},
        {"decision cannot be read",
         notDetermined,
         true,
         1,
         false,
         {},
         PushRefusal{"the user's decision about notifications cannot be read; see the log", true},
         true,
         false},
        {"denied", denied, true, 1, false, {}, PushRefusal{"the user does not allow notifications"}},
        {"foreground", authorized, true, 1, true, chosen, {}},
        {"foreground, not stored", authorized, true, 1, true, chosen, PushRefusal::notStored(), false},
        {"foreground, no presenter works", authorized, true, 0, true, {}, {}},
        {"provisional", provisional, true, 1, true, chosen, {}},
        {"background", ephemeral, false, 1, false, all, {}},
        {"background, second presenter", authorized, false, 2, false, all, {}},
        {"background, no presenter works", authorized, false, 0, false, {}, {}},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const auto device = std::make_shared<Device>();
        device->center.setDelegate(device);
        device->scheduler.runUntilIdle();
        device->state.setAuthorizationStatus(row.status);
        device->first.isWorking = row.workingPresenter == 1;
        device->second.isWorking = row.workingPresenter == 2;
        device->isStoring = row.isStoring;
        device->store.isReadable = row.isReadable;
        std::vector<std::optional<PushRefusal>> refusals;
        device->center.deliver({"T", "B", {}, {}}, row.isActive,
                               [&](auto refusal) { refusals.push_back(refusal); });
        EXPECT_EQ(refusals, std::vector{row.refusal});
        EXPECT_EQ(device->presented.size(), row.isPresented ? 1U : 0U);
        auto& shown = row.workingPresenter == 2 ? device->second.shown : device->first.shown;
        ASSERT_EQ(shown.size(), row.shownOptions ? 1U : 0U);
        if (!row.shownOptions)
            continue;
        EXPECT_EQ(shown.front().options, *row.shownOptions);
        shown.front().tap();
        EXPECT_EQ(device->answered, std::vector<std::string>{"T"});
    }
}

/// A payload of the maximum depth.
PropertyList::Dictionary deepPayload()
{
    PropertyList payload = PropertyList::Dictionary{{"null", PropertyList()}, {"real", 1.5}, {"flag", true}};
    for (std::size_t level = 1; level < PropertyLists::maximumPropertyListDepth; ++level)
        payload = PropertyList::Dictionary{{"k", payload}};
    PropertyList::Dictionary whole = *payload.dictionary();
    whole.emplace("aps", PropertyList::Dictionary{{"alert", "A"}, {"sound", "default"}});
    return whole;
}

TEST(DeviceNotificationCenterTest, StoresWhatCannotBeShownAndShowsItLaterInOrder)
{
    constexpr std::size_t limit = Push::PendingNotifications::maximumCount;
    const auto device = std::make_shared<Device>();
    device->state.setAuthorizationStatus(AuthorizationStatus::authorized);
    device->first.isWorking = device->second.isWorking = false;
    std::vector<std::optional<PushRefusal>> refusals;
    const auto deliver = [&](const std::string& title) {
        device->center.deliver({title, "B", deepPayload(), Date{7}}, false,
                               [&](auto refusal) { refusals.push_back(refusal); });
        device->scheduler.runUntilIdle();
    };
    device->store.isWritable = false;
    deliver("not stored");
    device->store.isWritable = true;
    for (std::size_t number = 1; number <= limit + 1; ++number)
        deliver(std::to_string(number));
    ASSERT_EQ(refusals.size(), limit + 2);
    EXPECT_EQ(refusals.front(), PushRefusal::notStored());
    EXPECT_EQ(std::ranges::count(refusals, std::optional<PushRefusal>()), static_cast<std::ptrdiff_t>(limit));
    ASSERT_TRUE(refusals.back());
    EXPECT_TRUE(refusals.back()->isTemporary) << refusals.back()->reason;

    auto list = *device->store.object("KeptNotifications")->array();
    list.insert(list.begin(), "damaged");
    device->store.set("KeptNotifications", list);

    // After a restart, with a presenter that works.
    FakeNotificationPresenter server;
    server.isWorking = false;
    Push::DeviceNotificationCenter center({device->state, device->scheduler.mainQueue, nullptr, {&server}});
    center.setDelegate(device);
    device->scheduler.runUntilIdle();
    server.isWorking = true;
    device->state.setAuthorizationStatus(AuthorizationStatus::denied);
    server.becomeAvailable();
    device->scheduler.runUntilIdle();
    EXPECT_TRUE(server.shown.empty()) << "the user has denied permission";
    device->state.setAuthorizationStatus(AuthorizationStatus::authorized);
    server.isSlow = true;
    server.becomeAvailable();
    server.becomeAvailable();
    EXPECT_TRUE(server.shown.empty()) << "shown inside the call";
    device->scheduler.runUntilIdle();
    ASSERT_EQ(server.shown.size(), 1U) << "one at a time";
    server.isSlow = false;
    server.complete(true);
    device->scheduler.runUntilIdle();
    ASSERT_EQ(server.shown.size(), limit);
    EXPECT_EQ(server.shown.front().notification.title, "1");
    EXPECT_EQ(server.shown.front().options, 27U);
    const UserNotification& last = server.shown.back().notification;
    EXPECT_EQ(last.title, std::to_string(limit));
    EXPECT_EQ(last.body, "B");
    EXPECT_EQ(last.userInfo, deepPayload());
    EXPECT_EQ(last.date, Date{7});
    EXPECT_TRUE(last.hasSound);
    EXPECT_TRUE(device->presented.empty());
    server.shown.back().tap();
    EXPECT_EQ(device->answered, std::vector{last.title});
    server.becomeAvailable();
    device->scheduler.runUntilIdle();
    EXPECT_EQ(server.shown.size(), limit) << "shown twice";
    deliver("for the next start");
    const Push::DeviceNotificationCenter next(
        {device->state, device->scheduler.mainQueue, nullptr, {&server}});
    device->scheduler.runUntilIdle();
    EXPECT_EQ(server.shown.back().notification.title, "for the next start");
}

TEST(DeviceNotificationCenterTest, StoredNotificationIsNotShownRepeatedlyWhenTheStoreFails)
{
    const auto device = std::make_shared<Device>();
    device->state.setAuthorizationStatus(AuthorizationStatus::authorized);
    device->first.isWorking = device->second.isWorking = false;
    device->center.deliver({"T", "", {}, {}}, false, [](auto) {});
    device->scheduler.runUntilIdle();
    device->store.isWritable = false;
    device->first.isWorking = true;
    device->first.becomeAvailable();
    device->scheduler.runUntilIdle();
    EXPECT_EQ(device->first.shown.size(), 1U);
    // Showing the next notification proves that a presenter works, although none reported it.
    device->store.isWritable = true;
    device->center.deliver({"next", "", {}, {}}, false, [](auto) {});
    device->scheduler.runUntilIdle();
    EXPECT_EQ(device->first.shown.size(), 3U);
    EXPECT_FALSE(device->store.object("KeptNotifications"));
}

TEST(DeviceNotificationCenterTest, ForegroundNotificationsWaitInMemoryUpToALimit)
{
    constexpr std::size_t limit = Push::DeviceNotificationCenter::maximumWaitingCount;
    const auto device = std::make_shared<Device>();
    device->state.setAuthorizationStatus(AuthorizationStatus::authorized);
    device->center.setDelegate(device);
    device->center.deliver({"early", "", {}, {}}, true, [](auto) {});
    EXPECT_TRUE(device->presented.empty()) << "the delegate is set on the main queue";
    device->scheduler.runUntilIdle();
    device->first.isWorking = device->second.isWorking = false;
    for (std::size_t number = 0; number < limit + 2; ++number) {
        device->presentationOptions = PresentationOptions::banner;
        device->center.deliver({std::to_string(number), "", {}, {}}, true, [](auto) {});
        device->presentationOptions = PresentationOptions::list;
        device->center.deliver({"without banner", "", {}, {}}, true, [](auto) {});
    }
    EXPECT_FALSE(device->store.object("KeptNotifications")) << "the delegate has stored them";
    device->second.becomeAvailable();
    device->scheduler.runUntilIdle();
    device->second.isWorking = device->second.isSlow = true;
    device->second.becomeAvailable();
    device->second.becomeAvailable();
    device->scheduler.runUntilIdle();
    ASSERT_EQ(device->second.shown.size(), 1U) << "one at a time";
    device->second.isSlow = false;
    device->second.complete(true);
    device->scheduler.runUntilIdle();
    ASSERT_EQ(device->second.shown.size(), limit);
    EXPECT_EQ(device->second.shown.front().notification.title, "2");
    EXPECT_EQ(device->second.shown.front().options, PresentationOptions::banner);
}

} // namespace
