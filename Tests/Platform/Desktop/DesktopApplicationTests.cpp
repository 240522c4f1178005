#include "Platform/Desktop/DesktopApplication.h"
#include "Platform/Linux/PushPayload.h"
#include "Platform/Shell.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"

#include <gtest/gtest.h>

using namespace Platform;
using Strings = std::vector<std::string>;

namespace {

/// Everything around the application, remembering what reaches it.
struct Surroundings : ApplicationDelegate, UserNotificationDelivery, PushService {
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
    void didReceiveRemoteNotification(const PropertyList::Dictionary&,
                                      std::function<void(BackgroundFetchResult)> completion) override
    {
        events.emplace_back("background");
        store.failures += isDiskFull ? 1 : 0;
        completion(BackgroundFetchResult::newData);
    }
    void deliver(const UserNotification& notification, bool isActive, Completion completion) override
    {
        events.push_back((isActive ? "front: " : "behind: ") + notification.title + "|" + notification.body);
        completion(centerRefusal);
    }
    void start(PushServiceListener& newListener) override
    {
        events.emplace_back("push started");
        listener = &newListener;
    }
    void registerDevice() override { events.emplace_back("registering"); }

    Strings events;
    std::optional<std::string> centerRefusal;
    bool isDiskFull = false;
    FakeUserDefaults store;
    PushServiceListener* listener = nullptr;
};

class DesktopApplicationTest : public testing::Test {
protected:
    ManualScheduler clock;
    std::shared_ptr<Surroundings> world = std::make_shared<Surroundings>();
    Desktop::DesktopApplication application{
        {*world, *world, world->store, clock, [this] { world->events.emplace_back("settings"); }}};
};

TEST_F(DesktopApplicationTest, TellsTheDelegateWhatHappensAndHoldsItWeakly)
{
    application.setDelegate(world);
    application.finishLaunching();
    application.registerForRemoteNotifications();
    application.open(Application::openSettingsURLString);
    application.open("https://example.com");
    for (const std::size_t size : {0U, 1U, 1000U})
        world->listener->didRegister(Data(size));
    world->listener->didFailToRegister({"E", "E", 1, "no distributor", {}});
    EXPECT_EQ(world->events, (Strings{"launched", "push started", "registering", "settings", "token of 0",
                                      "token of 1", "token of 1000", "no distributor"}));
    EXPECT_EQ(world.use_count(), 1);
}

TEST_F(DesktopApplicationTest, PayloadsGoWhereTheyBelong)
{
    struct Case {
        const char* payload;
        bool isCenterRefusing;
        Strings expected;
    };
    const Case cases[] = {
        {R"({"aps": {"alert": {"title": "T", "body": "B"}}})", false, {"front: T|B", "ok"}},
        {R"({"aps": {"alert": "Hello"}, "own": 1})", false, {"front: Hello|", "ok"}},
        {R"({"aps": {"alert": {"title": 5, "body": ["x"]}}})", false, {"front: |", "ok"}},
        {R"({"aps": {"alert": "Hello"}})", true, {"front: Hello|", "refused"}},
        {R"({"aps": {"content-available": 1}})", false, {"background", "ok"}},
        {R"({"aps": {"alert": "Both", "content-available": 1}})",
         false,
         {"front: Both|", "background", "ok"}},
        {R"({"aps": {"alert": "Both", "content-available": 1}})", true, {"front: Both|", "background", "ok"}},
        {R"({"aps": {"alert": "A", "content-available": 0}})", false, {"front: A|", "ok"}},
        {R"({"aps": {"alert": 7}})", false, {"background", "ok"}},
        {R"({"aps": {"alert": null}})", false, {"background", "ok"}},
        {R"({"aps": "text"})", false, {"background", "ok"}},
        {R"({})", false, {"background", "ok"}},
    };
    application.setDelegate(world);
    application.setActive(true);
    for (const Case& row : cases) {
        world->events.clear();
        world->centerRefusal = row.isCenterRefusing ? std::optional<std::string>("no") : std::nullopt;
        const auto payload = Linux::readPushPayload(row.payload);
        application.didReceive(std::get<PropertyList::Dictionary>(payload), [&](const auto& refusal) {
            world->events.emplace_back(refusal ? "refused" : "ok");
        });
        EXPECT_EQ(world->events, row.expected) << row.payload;
    }
}

TEST_F(DesktopApplicationTest, WhatCouldNotBeStoredIsRefused)
{
    application.setDelegate(world);
    for (const bool isDiskFull : {true, false}) {
        world->isDiskFull = isDiskFull;
        std::optional<std::string> refusal;
        application.didReceive({}, [&](const auto& answer) { refusal = answer; });
        EXPECT_EQ(refusal.has_value(), isDiskFull);
    }
}

} // namespace
