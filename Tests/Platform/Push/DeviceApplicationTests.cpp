#include "Platform/Push/DeviceApplication.h"

#include "Platform/OutcomeRecorder.h"
#include "Platform/Push/PushPayload.h"
#include "Platform/Shell.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"

#include <gtest/gtest.h>

using namespace Platform;
using Strings = std::vector<std::string>;

namespace {

/// The application's environment, which records the calls it receives.
struct RecordingEnvironment : ApplicationDelegate, UserNotificationDelivery, PushService {
    bool didFinishLaunching() override
    {
        events.emplace_back("launched");
        return true;
    }
    void didRegisterForRemoteNotifications(const Data& token) override
    {
        events.push_back("token of " + std::to_string(token.size()));
    }
    void didFailToRegisterForRemoteNotifications(const Error& error) override
    {
        events.push_back(error.localizedDescription);
    }
    void didReceiveRemoteNotification(const PropertyList::Dictionary&, FetchCompletion completion) override
    {
        events.emplace_back("background");
        completion(BackgroundFetchResult::newData, isStoring);
    }
    void deliver(const UserNotification& notification, bool isActive, Completion completion) override
    {
        events.push_back((isActive ? "front: " : "behind: ") + notification.title + "|" + notification.body +
                         (notification.hasSound ? " sound" : "") +
                         (notification.isPassive ? " passive" : ""));
        completion(centerRefusal);
    }
    void start(PushServiceListener& newListener) override
    {
        events.emplace_back("push started");
        listener = &newListener;
    }
    void registerDevice() override { events.emplace_back("registering"); }

    Strings events;
    std::optional<PushRefusal> centerRefusal;
    bool isStoring = true;
    PushServiceListener* listener = nullptr;
};

std::string described(const std::optional<PushRefusal>& refusal)
{
    if (!refusal)
        return "ok";
    return (refusal->isTemporary ? "refused for now: " : "refused: ") + refusal->reason;
}

const std::string notStored = described(PushRefusal::notStored());

class DeviceApplicationTest : public testing::Test {
protected:
    /// The outcome that was recorded just now. Advances the clock.
    Outcome recordedPush()
    {
        outcomeStore.values.clear();
        clock.runUntilIdle();
        const Outcomes stored = storedOutcomes(outcomeStore);
        clock.advance(OutcomeRecorder::interval);
        return stored.contains(Outcome::Subject::push) ? stored.at(Outcome::Subject::push) : Outcome{};
    }

    ManualScheduler clock;
    std::shared_ptr<RecordingEnvironment> world = std::make_shared<RecordingEnvironment>();
    FakeUserDefaults store;
    Activity activity{[] {}};
    FakeUserDefaults outcomeStore;
    OutcomeRecorder outcomes{{outcomeStore, clock, clock.mainQueue, clock}};
    Push::DeviceApplication application{{*world, Push::PushServiceKind::local, *world, store, clock,
                                         [this] { world->events.emplace_back("settings"); }, activity,
                                         outcomes}};
};

TEST_F(DeviceApplicationTest, CallsTheDelegateAndHoldsItWeakly)
{
    application.setDelegate(world);
    application.finishLaunching();
    application.registerForRemoteNotifications();
    application.open(Application::openSettingsURLString);
    application.open("App-Settings:");
    application.open("https://example.com");
    world->listener->didRegister(Data(1000));
    world->listener->didFailToRegister({"E", "E", 1, "no distributor", {}});
    EXPECT_EQ(world->events, (Strings{"launched", "push started", "registering", "settings", "settings",
                                      "token of 1000", "no distributor"}));
    EXPECT_EQ(world.use_count(), 1);
}

TEST_F(DeviceApplicationTest, RecordsTheResultOfTheLastRegistration)
{
    using Push::PushServiceState;
    const auto recorded = [&] { return PushServiceState::stored(store); };
    PushServiceState{Push::PushServiceKind::unifiedPush, PushServiceState::Failure{1, {}}}.write(store);
    application.finishLaunching();
    const PushServiceState good{Push::PushServiceKind::local};
    EXPECT_EQ(recorded(), good);
    clock.advance(std::chrono::seconds(5));
    world->listener->didFailToRegister({"E", "E", 7, "canary", {}});
    EXPECT_EQ(recorded(),
              (PushServiceState{Push::PushServiceKind::local, PushServiceState::Failure{7, clock.now()}}));
    for (const auto& [key, value] : store.values)
        EXPECT_EQ(value.description().find("canary"), std::string::npos);
    world->listener->didRegister(Data(5));
    EXPECT_EQ(recorded(), good);
    const int commitCount = store.commitCount;
    world->listener->didRegister(Data(5));
    EXPECT_EQ(store.commitCount, commitCount) << "unchanged state was written again";
    store.values["PushService.State"] = PropertyList::Dictionary{{"kind", "carrier pigeon"}};
    EXPECT_EQ(recorded(), std::nullopt);
}

TEST_F(DeviceApplicationTest, RoutesPayloadsByTheirContents)
{
    struct Case {
        const char* payload;
        Strings expected;
        std::optional<PushRefusal> centerRefusal = {};
        bool isStoring = true;
        bool isActive = true;
    };
    const PushRefusal no{"no"};
    const PushRefusal notNow{"not now", true};
    const char* alert = R"({"aps": {"alert": "A", "interruption-level": "active"}, "own": 1})";
    const char* both = R"({"aps": {"alert": "Both", "content-available": 1}})";
    const Case cases[] = {
        {R"({"aps": {"alert": {"title": "T", "body": "B"}}})", {"front: T|B", "ok"}},
        {R"({"aps": {"alert": {"title": 5, "body": ["x"]}}})", {"front: |", "ok"}},
        {R"({"aps": {"alert": "A", "sound": "x", "interruption-level": "passive"}})",
         {"front: A| sound passive", "ok"}},
        {alert, {"front: A|", "refused: no"}, no},
        {alert, {"front: A|", "refused for now: not now"}, notNow},
        {alert, {"behind: A|", "ok"}, {}, true, false},
        {both, {"front: Both|", "background", "ok"}},
        {both, {"front: Both|", "background", "ok"}, no},
        {both, {"front: Both|", "background", "refused for now: not now"}, notNow},
        {both, {"front: Both|", "background", notStored}, {}, false},
        {R"({"aps": {"alert": "A", "content-available": 2}})", {"front: A|", "ok"}},
        {R"({"aps": {"content-available": 1}})", {"background", "ok"}},
        {R"({"aps": {"alert": 7}})", {"background", "ok"}},
        {R"({"aps": "text"})", {"background", "ok"}},
        {"{}", {"background", "ok"}},
        {"{}", {"background", notStored}, {}, false},
    };
    application.setDelegate(world);
    for (const Case& row : cases) {
        application.setActive(row.isActive);
        world->events.clear();
        world->centerRefusal = row.centerRefusal;
        world->isStoring = row.isStoring;
        const auto payload = Push::readPushPayload(row.payload);
        application.didReceive(std::get<PropertyList::Dictionary>(payload), [&](const auto& refusal) {
            EXPECT_FALSE(activity.isIdle());
            world->events.push_back(described(refusal));
        });
        EXPECT_EQ(world->events, row.expected) << row.payload;
        EXPECT_TRUE(activity.isIdle()) << row.payload;
        const bool isAlert = world->events.front() != "background";
        const std::string& end = world->events.back();
        const auto result = end == "ok"                    ? Outcome::Result::succeeded
                            : end.starts_with("refused: ") ? Outcome::Result::failed
                                                           : Outcome::Result::deferred;
        const Outcome expected{result, isAlert ? Outcome::Kind::alert : Outcome::Kind::silent, 0,
                               clock.now()};
        EXPECT_EQ(recordedPush(), expected) << row.payload;
    }
    application.didReceiveUnreadablePush();
    const Outcome unreadable{Outcome::Result::failed, Outcome::Kind::none, 0, clock.now()};
    EXPECT_EQ(recordedPush(), unreadable);
    application.setDelegate({});
    std::string answer;
    application.didReceive({}, [&](const auto& refusal) { answer = described(refusal); });
    EXPECT_EQ(answer, "refused for now: the application is quitting");
}

} // namespace
