#include "Platform/Push/DeviceNotificationCenter.h"

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/Push/PushPayload.h"
#include "Platform/Push/ShellState.h"
#include "Tests/Fakes/FakeShell.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/FakeUserNotificationCenter.h"
#include "Tests/Fakes/ManualScheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <tuple>

using namespace Platform;

namespace {

/// The device's notification center on fakes, and a delegate that records its calls.
struct Device : UserNotificationCenterDelegate {
    /// Returns a device that is its own delegate.
    static std::shared_ptr<Device> make(AuthorizationStatus status = AuthorizationStatus::authorized)
    {
        auto device = std::make_shared<Device>();
        device->state.setAuthorizationStatus(status);
        device->center.setDelegate(device);
        device->scheduler.runUntilIdle();
        return device;
    }
    void willPresent(const UserNotification& notification, const PresentationCompletion& completion) override
    {
        presented.push_back(notification.title);
        completion(presentationOptions, isStoring);
    }
    void didReceive(const UserNotificationResponse& response, const std::function<void()>&) override
    {
        answered.push_back(response.notification.title);
    }
    void deliver(const std::string& title, bool isActive = false,
                 const PropertyList::Dictionary& payload = {})
    {
        center.deliver({title, "B", payload, Date{7}}, isActive,
                       [this](auto refusal) { refusals.push_back(refusal); });
        scheduler.runUntilIdle();
    }
    void makeAvailable(FakeNotificationPresenter& presenter)
    {
        const auto shownCount = presenter.shown.size();
        presenter.isWorking = true;
        presenter.becomeAvailable();
        EXPECT_EQ(presenter.shown.size(), shownCount) << "shown inside the call";
        scheduler.runUntilIdle();
    }
    /// `presenter` becomes available twice while it shows the first notification.
    void makeAvailableSlowly(FakeNotificationPresenter& presenter)
    {
        presenter.isSlow = true;
        makeAvailable(presenter);
        makeAvailable(presenter);
        EXPECT_EQ(presenter.shown.size(), 1U) << "one at a time";
        presenter.isSlow = false;
        presenter.complete(true);
        scheduler.runUntilIdle();
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
    std::vector<std::optional<PushRefusal>> refusals;
};

TEST(DeviceNotificationCenterTest, AllRequestsReceiveTheUsersOneDecision)
{
    using enum AuthorizationStatus;
    for (const bool isGranted : {true, false}) {
        Device device;
        std::string events;
        const auto request = [&](Push::DeviceNotificationCenter& center) {
            center.requestAuthorization(AuthorizationOptions::alert, [&](bool granted, auto error) {
                events += granted ? "granted " : error ? "failed " : "denied ";
            });
            center.getNotificationSettings([&](NotificationSettings settings) {
                events += settings.authorizationStatus == notDetermined ? "unknown "
                          : settings.authorizationStatus == authorized  ? "authorized "
                                                                        : "refused ";
            });
            events += "| ";
            device.scheduler.runUntilIdle();
        };
        Push::DeviceNotificationCenter withoutScreen({device.state, device.scheduler.mainQueue, nullptr, {}});
        request(withoutScreen);
        request(device.center);
        request(device.center);
        ASSERT_EQ(device.prompt.requests.size(), 1U);
        device.prompt.requests.front()(isGranted);
        request(device.center);
        EXPECT_EQ(events, std::string("| failed unknown | unknown | unknown ") +
                              (isGranted ? "granted granted | granted authorized "
                                         : "denied denied | denied refused "));
    }
}

TEST(ShellStateTest, StoresOnlyAKnownDecision)
{
    FakeUserDefaults store;
    Push::ShellState state(store);
    EXPECT_TRUE(state.setAuthorizationStatus(AuthorizationStatus::denied));
    EXPECT_TRUE(state.setAuthorizationStatus(AuthorizationStatus::notDetermined));
    EXPECT_TRUE(store.values.empty());
    for (const int unknown : {-1, 5}) {
        store.set("NotificationAuthorization", unknown);
        EXPECT_EQ(state.authorizationStatus(), AuthorizationStatus::notDetermined);
    }
}

TEST(DeviceNotificationCenterTest, DeliversByPermissionAndForegroundState)
{
    struct Case {
        const char* name;
        AuthorizationStatus status;
        bool isActive;
        int workingPresenter;
        /// The number of calls of the delegate, and the options of the shown notification.
        std::size_t presentedCount;
        std::optional<unsigned> shownOptions;
        std::optional<PushRefusal> refusal = {};
        bool isStoring = true;
    };
    using enum AuthorizationStatus;
    constexpr unsigned all = 27;
    constexpr unsigned chosen = PresentationOptions::list;
    const PushRefusal unreadable{"the user's decision about notifications cannot be read; see the log", true};
    const PushRefusal notYet{"the user has not allowed notifications yet"};
    const Case cases[] = {
        {"not asked", notDetermined, true, 1, 0, {}, notYet},
        {"decision cannot be read", notDetermined, true, 1, 0, {}, unreadable},
        {"denied", denied, true, 1, 0, {}, PushRefusal{"the user does not allow notifications"}},
        {"foreground", authorized, true, 1, 1, chosen},
        {"foreground, not stored", authorized, true, 1, 1, chosen, PushRefusal::notStored(), false},
        {"foreground, no presenter works", authorized, true, 0, 1, {}},
        {"provisional", provisional, true, 1, 1, chosen},
        {"background", ephemeral, false, 1, 0, all},
        {"background, second presenter", authorized, false, 2, 0, all},
        {"background, no presenter works", authorized, false, 0, 0, {}},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const auto device = Device::make(row.status);
        device->first.isWorking = row.workingPresenter == 1;
        device->second.isWorking = row.workingPresenter == 2;
        device->isStoring = row.isStoring;
        device->store.isReadable = row.refusal != unreadable;
        device->deliver("T", row.isActive);
        EXPECT_EQ(device->refusals, std::vector{row.refusal});
        EXPECT_EQ(device->presented.size(), row.presentedCount);
        auto& shown = row.workingPresenter == 2 ? device->second.shown : device->first.shown;
        ASSERT_EQ(shown.size(), row.shownOptions ? 1U : 0U);
        if (!row.shownOptions)
            continue;
        EXPECT_EQ(shown.front().options, *row.shownOptions);
        shown.front().tap();
        EXPECT_EQ(device->answered, std::vector<std::string>{"T"});
    }
}

TEST(DeviceNotificationCenterTest, StoresWhatCannotBeShownAndShowsItLaterInOrder)
{
    constexpr std::size_t limit = Push::PendingNotifications::maximumCount;
    constexpr std::size_t depth = PropertyLists::maximumPropertyListDepth - 1;
    const auto payload = std::get<PropertyList::Dictionary>(
        Push::readPushPayload(R"({"aps": {"alert": "A", "sound": "default"}, "deepest": )" +
                              std::string(depth, '[') + "null, 1.5, true" + std::string(depth, ']') + "}"));
    const auto device = Device::make();
    device->first.isWorking = device->second.isWorking = false;
    device->store.isWritable = false;
    device->deliver("not stored");
    device->store.isWritable = true;
    for (std::size_t number = 1; number <= limit + 1; ++number)
        device->deliver(std::to_string(number), false, payload);
    ASSERT_EQ(device->refusals.size(), limit + 2);
    EXPECT_EQ(device->refusals.front(), PushRefusal::notStored());
    EXPECT_EQ(std::ranges::count(device->refusals, std::optional<PushRefusal>()),
              static_cast<std::ptrdiff_t>(limit));
    EXPECT_TRUE(device->refusals.back() && device->refusals.back()->isTemporary);

    auto list = *device->store.object("KeptNotifications")->array();
    list.insert(list.begin(), "damaged");
    device->store.set("KeptNotifications", list);

    // After a restart, with a presenter that works.
    FakeNotificationPresenter server;
    server.isWorking = false;
    Push::DeviceNotificationCenter center({device->state, device->scheduler.mainQueue, nullptr, {&server}});
    center.setDelegate(device);
    device->scheduler.runUntilIdle();
    device->state.setAuthorizationStatus(AuthorizationStatus::denied);
    device->makeAvailable(server);
    EXPECT_TRUE(server.shown.empty()) << "the user has denied permission";
    device->state.setAuthorizationStatus(AuthorizationStatus::authorized);
    device->makeAvailableSlowly(server);
    ASSERT_EQ(server.shown.size(), limit);
    EXPECT_EQ(server.shown.front().notification.title, "1");
    EXPECT_EQ(server.shown.front().options, 27U);
    const UserNotification& last = server.shown.back().notification;
    EXPECT_EQ(std::tie(last.title, last.body, last.userInfo, last.date, last.hasSound),
              std::tuple(std::to_string(limit), "B", payload, Date{7}, true));
    EXPECT_TRUE(device->presented.empty());
    server.shown.back().tap();
    EXPECT_EQ(device->answered, std::vector{last.title});
    device->makeAvailable(server);
    EXPECT_EQ(server.shown.size(), limit) << "shown twice";
    device->deliver("for the next start");
    const Push::DeviceNotificationCenter next(
        {device->state, device->scheduler.mainQueue, nullptr, {&server}});
    device->scheduler.runUntilIdle();
    EXPECT_EQ(server.shown.back().notification.title, "for the next start");
}

TEST(DeviceNotificationCenterTest, StoredNotificationIsNotShownRepeatedlyWhenTheStoreFails)
{
    const auto device = Device::make();
    device->first.isWorking = device->second.isWorking = false;
    device->deliver("T");
    device->store.isWritable = false;
    device->makeAvailable(device->first);
    EXPECT_EQ(device->first.shown.size(), 1U);
    // Showing the next notification proves that a presenter works, although none reported it.
    device->store.isWritable = true;
    device->deliver("next");
    EXPECT_EQ(device->first.shown.size(), 3U);
    EXPECT_FALSE(device->store.object("KeptNotifications"));
}

TEST(DeviceNotificationCenterTest, ForegroundNotificationsWaitInMemoryUpToALimit)
{
    constexpr std::size_t limit = Push::DeviceNotificationCenter::maximumWaitingCount;
    const auto device = Device::make();
    device->first.isWorking = device->second.isWorking = false;
    for (std::size_t number = 0; number < limit + 2; ++number) {
        device->presentationOptions = PresentationOptions::banner;
        device->deliver(std::to_string(number), true);
        device->presentationOptions = PresentationOptions::list;
        device->deliver("without banner", true);
    }
    EXPECT_FALSE(device->store.object("KeptNotifications")) << "the delegate has stored them";
    auto& server = device->second;
    server.becomeAvailable(); // But it fails.
    device->scheduler.runUntilIdle();
    device->makeAvailableSlowly(server);
    ASSERT_EQ(server.shown.size(), limit);
    EXPECT_EQ(server.shown.front().notification.title, "2");
    EXPECT_EQ(server.shown.front().options, PresentationOptions::banner);
    device->center.setDelegate({}); // Takes effect on the main queue.
    device->deliver("last", true);
    EXPECT_EQ(device->presented.back(), "last");
}

} // namespace
