#include "Platform/Linux/DeviceNotificationCenter.h"
#include "Platform/Linux/ShellState.h"
#include "Tests/Fakes/FakeShell.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/FakeUserNotificationCenter.h"
#include "Tests/Fakes/ManualScheduler.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace Platform;

namespace {

/// The centre of the device on fakes, and what it told its delegate.
struct Device : UserNotificationCenterDelegate {
    void willPresent(const UserNotification& notification, const PresentationCompletion& completion) override
    {
        presented.push_back(notification.title);
        completion(PresentationOptions::list, isStoring);
    }
    void didReceive(const UserNotificationResponse& response, const std::function<void()>&) override
    {
        answered.push_back(response.notification.title);
    }

    ManualScheduler scheduler;
    FakeUserDefaults store;
    Linux::ShellState state{store};
    FakePermissionPrompt prompt;
    FakeNotificationPresenter first;
    FakeNotificationPresenter second;
    Linux::DeviceNotificationCenter center{{state, scheduler.mainQueue, &prompt, {&first, &second}}};
    bool isStoring = true;
    std::vector<std::string> presented;
    std::vector<std::string> answered;
};

/// The contract on the centre of the device and on the fake that stands in for it.
void checkAuthorization(UserNotificationCenter& center, ManualScheduler& scheduler,
                        const std::function<void(bool)>& userAnswers, bool isGranted)
{
    const auto status = [&] {
        std::optional<AuthorizationStatus> answer;
        center.getNotificationSettings([&](NotificationSettings settings) {
            EXPECT_FALSE(answer) << "once";
            answer = settings.authorizationStatus;
        });
        EXPECT_FALSE(answer) << "not inside the call";
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
    EXPECT_TRUE(answers.empty()) << "not inside the call";
    scheduler.runUntilIdle();
    userAnswers(isGranted);
    EXPECT_EQ(answers, (std::vector{isGranted, isGranted}));
    EXPECT_EQ(status(), isGranted ? AuthorizationStatus::authorized : AuthorizationStatus::denied);
    request();
    scheduler.runUntilIdle();
    EXPECT_EQ(answers.size(), 3U) << "answered without asking again";
    EXPECT_EQ(answers.back(), isGranted);
}

TEST(UserNotificationCenterContractTest, TheUserDecidesOnceAndEverybodyLearnsIt)
{
    for (const bool isGranted : {true, false}) {
        Device device;
        checkAuthorization(
            device.center, device.scheduler,
            [&](bool answer) {
                ASSERT_EQ(device.prompt.asked.size(), 1U);
                device.prompt.asked.front()(answer);
            },
            isGranted);
        ManualScheduler scheduler;
        FakeUserNotificationCenter fake(scheduler.mainQueue);
        fake.willGrant = isGranted;
        checkAuthorization(
            fake, scheduler, [](bool) {}, isGranted);
    }
}

TEST(DeviceNotificationCenterTest, WithoutAScreenARequestFails)
{
    Device device;
    Linux::DeviceNotificationCenter center({device.state, device.scheduler.mainQueue, nullptr, {}});
    std::optional<Error> failure;
    center.requestAuthorization(AuthorizationOptions::alert,
                                [&](bool, std::optional<Error> error) { failure = std::move(error); });
    device.scheduler.runUntilIdle();
    ASSERT_TRUE(failure);
    EXPECT_EQ(device.state.authorizationStatus(), AuthorizationStatus::notDetermined);
}

TEST(DeviceNotificationCenterTest, DeliversByPermissionAndByWhatTheUserLooksAt)
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
        {"denied", denied, true, 1, false, {}, PushRefusal{"the user does not allow notifications"}},
        {"in front", authorized, true, 1, true, chosen, {}},
        {"in front, not stored", authorized, true, 1, true, chosen, PushRefusal::notStored(), false},
        {"in front, nothing to show it", authorized, true, 0, true, {}, {}},
        {"provisional", provisional, true, 1, true, chosen, {}},
        {"behind", ephemeral, false, 1, false, all, {}},
        {"behind, second presenter", authorized, false, 2, false, all, {}},
        {"behind, nothing to show it",
         authorized,
         false,
         0,
         false,
         {},
         PushRefusal{"nothing on this desktop can show a notification"}},
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

} // namespace
