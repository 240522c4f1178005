#include "Platform/Task.h"

#include "Tests/Fakes/ManualScheduler.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace Platform;

namespace {

Task<int> answered(int value)
{
    co_return value;
}

/// Awaits many tasks in a row, which overflows the stack unless control is transferred symmetrically.
Task<int> sumTo(int count)
{
    int sum = 0;
    for (int i = 1; i <= count; ++i) {
        auto next = answered(i);
        sum += co_await std::move(next);
    }
    co_return sum;
}

TEST(TaskTest, RunsWhenSpawnedForwardsValuesAndMayNotFail)
{
    ManualScheduler scheduler;
    std::vector<std::string> events;
    const auto flow = [&]() -> Task<void> {
        events.emplace_back("started");
        auto sum = sumTo(10'000);
        events.push_back(std::to_string(co_await std::move(sum)));
        auto onUtility = resumeOn(scheduler.utilityQueue);
        co_await onUtility;
        events.emplace_back("on utility");
    };
    spawn(scheduler.mainQueue, flow());
    EXPECT_TRUE(events.empty()) << "a task does not start inside spawn";
    scheduler.mainQueue.runNext();
    EXPECT_EQ(events, (std::vector<std::string>{"started", "50005000"}));
    scheduler.utilityQueue.runNext();
    EXPECT_EQ(events.back(), "on utility");
    const auto failing = []() -> Task<void> {
        throw std::runtime_error("no answer");
        co_return;
    };
    EXPECT_DEATH((spawn(scheduler.mainQueue, failing()), scheduler.runUntilIdle()), "left a spawned task");
}

TEST(TaskTest, SuspensionResumesFromAnyThread)
{
    ManualScheduler scheduler;
    std::vector<int> values;
    std::optional<Continuation<int>> kept;
    std::jthread other;
    const auto flow = [&]() -> Task<void> {
        Suspension<int> atOnce([](auto continuation) { continuation.resume(1); });
        values.push_back(co_await atOnce);
        Suspension<int> later([&](auto continuation) { kept = continuation; });
        values.push_back(co_await later);
        Suspension<int> elsewhere(
            [&](auto continuation) { other = std::jthread([continuation] { continuation.resume(3); }); });
        values.push_back(co_await elsewhere);
    };
    spawn(scheduler.mainQueue, flow());
    scheduler.runUntilIdle();
    EXPECT_EQ(values, std::vector{1});
    kept->resume(2);
    other.join();
    EXPECT_EQ(values, (std::vector{1, 2, 3}));
    EXPECT_DEATH(kept->resume(2), "resumed twice");
}

TEST(TaskTest, DestroyedTaskDestroysItsFrame)
{
    const auto held = std::make_shared<int>(1);
    const auto flow = [](std::shared_ptr<int> copy) -> Task<int> { co_return *copy; };
    static_cast<void>(flow(held)); // Never awaited.
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace
