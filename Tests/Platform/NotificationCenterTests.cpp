#include "Platform/NotificationCenter.h"

#include "Tests/Fakes/ManualScheduler.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using Platform::Notification;
using Platform::NotificationCenter;

namespace {

TEST(NotificationCenterTest, DeliversByNameAndSenderOnEachObserversQueue)
{
    ManualScheduler scheduler;
    NotificationCenter center;
    const int sender = 0;
    const int stranger = 0;
    std::vector<std::string> received;
    const auto into = [&](const char* observer) {
        return [&received, observer](const Notification& note) {
            received.push_back(std::string(observer) + " " +
                               std::any_cast<const char*>(note.userInfo.at("n")));
        };
    };
    const auto post = [&](const char* name, const void* from, const char* number) {
        center.post({name, from, {{"n", number}}});
    };
    auto ofSender = center.addObserver("changed", &sender, &scheduler.mainQueue, into("sender"));
    auto ofAll = center.addObserver("changed", nullptr, nullptr, into("all"));
    post("changed", &sender, "1");
    post("changed", &stranger, "2");
    post("other", &sender, "3");
    EXPECT_EQ(received, (std::vector<std::string>{"all 1", "all 2"}));
    scheduler.runUntilIdle();
    EXPECT_EQ(received.back(), "sender 1");

    received.clear();
    ofAll = {};
    auto moved = std::exchange(ofSender, {});
    post("changed", &sender, "4");
    scheduler.runUntilIdle();
    EXPECT_EQ(received, std::vector<std::string>{"sender 4"});
    moved.release();
    moved = {};
    post("changed", &sender, "5");
    scheduler.runUntilIdle();
    EXPECT_EQ(received.back(), "sender 5") << "a released registration stays";
}

TEST(NotificationCenterTest, ObserverMayUnregisterAndRegisterDuringDelivery)
{
    NotificationCenter center;
    int count = 0;
    NotificationCenter::Token inner;
    NotificationCenter::Token outer = center.addObserver("n", nullptr, nullptr, [&](const Notification&) {
        ++count;
        outer = {};
        inner = center.addObserver("n", nullptr, nullptr, [&](const Notification&) { count += 10; });
    });
    center.post({"n", nullptr, {}});
    center.post({"n", nullptr, {}});
    EXPECT_EQ(count, 11);
}

TEST(NotificationCenterTest, IsThreadSafeAndTokensMayOutliveIt)
{
    std::atomic<int> count = 0;
    NotificationCenter::Token survivor;
    {
        NotificationCenter center;
        survivor = center.addObserver("n", nullptr, nullptr, [&](const Notification&) { ++count; });
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                for (int round = 0; round < 100; ++round) {
                    const auto token = center.addObserver("n", nullptr, nullptr, [](const Notification&) {});
                    center.post({"n", nullptr, {}});
                }
            });
        }
    }
    survivor = {};
    EXPECT_EQ(count, 400);
}

} // namespace
