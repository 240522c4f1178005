#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/Push/YieldingQueue.h"
#include "Tests/Fakes/CaseName.h"
#include "Tests/Fakes/ManualScheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <vector>

using namespace Platform;
using namespace std::chrono_literals;

namespace {

/// An implementation of a queue and timers. `settle` runs all pending items and the timers due within a
/// second.
struct SchedulingHarness {
    const char* name;
    std::function<void(
        const std::function<void(DispatchQueue&, TimerScheduler*, const std::function<void()>& settle)>&)>
        run;
};

const SchedulingHarness harnesses[] = {
    {"Manual",
     [](const auto& body) {
         ManualScheduler scheduler;
         body(scheduler.mainQueue, &scheduler, [&] { scheduler.advance(1s); });
     }},
    {"Qt",
     [](const auto& body) {
         int argc = 0;
         Desktop::QtRunLoop loop(std::make_unique<QCoreApplication>(argc, nullptr));
         body(loop, &loop, [&] {
             const auto end = loop.scheduledTimer(200ms, [&] { loop.quit(); });
             loop.run();
         });
     }},
    {"Worker",
     [](const auto& body) {
         Linux::WorkerQueue queue("contract", Linux::WorkerQueue::Priority::utility);
         body(queue, nullptr, [&] {
             std::promise<void> done;
             queue.async([&] { done.set_value(); });
             done.get_future().wait();
         });
     }},
    {"Yielding",
     [](const auto& body) {
         ManualScheduler scheduler;
         Push::YieldingQueue queue(scheduler.mainQueue);
         body(queue, nullptr, [&] { scheduler.runUntilIdle(); });
     }},
};

class SchedulingContractTest : public testing::TestWithParam<SchedulingHarness> {};

TEST_P(SchedulingContractTest, QueueRunsItemsInOrderAndNeverInsideTheSchedulingCall)
{
    GetParam().run([](DispatchQueue& queue, TimerScheduler*, const auto& settle) {
        std::promise<void> isScheduled;
        const auto scheduled = isScheduled.get_future().share();
        std::vector<int> ran;
        bool isInsideCall = true;
        queue.async([&] {
            // A worker's item could run before the scheduling call returns, so it waits here.
            if (GetParam().name == std::string("Worker"))
                scheduled.wait();
            EXPECT_FALSE(isInsideCall);
            ran.push_back(1);
            queue.async([&] { ran.push_back(3); });
            EXPECT_EQ(ran.back(), 1);
        });
        isInsideCall = false;
        queue.async([&] { ran.push_back(2); });
        isScheduled.set_value();
        settle();
        settle();
        EXPECT_EQ(ran, (std::vector{1, 2, 3}));
    });
}

class TimerContractTest : public SchedulingContractTest {};

TEST_P(TimerContractTest, TimerFiresOnceUnlessCancelled)
{
    GetParam().run([](DispatchQueue&, TimerScheduler* timers, const auto& settle) {
        std::vector<std::string> fired;
        const auto into = [&](const char* name) { return [&fired, name] { fired.emplace_back(name); }; };
        const auto later = timers->scheduledTimer(40ms, into("later"));
        const auto sooner = timers->scheduledTimer(10ms, into("sooner"));
        const auto invalidated = timers->scheduledTimer(5ms, into("invalidated"));
        auto destroyed = timers->scheduledTimer(5ms, into("destroyed"));
        std::unique_ptr<Timer> restarted;
        const TimerScheduler::Block restart = [&, name = std::string("restarting, as a text on the heap")] {
            restarted = timers->scheduledTimer(5ms, into("restarted")); // Destroys the timer that fires.
            fired.push_back(name);
        };
        restarted = timers->scheduledTimer(60ms, restart);
        const auto immediate = timers->scheduledTimer(0ms, into("immediate"));
        EXPECT_TRUE(fired.empty());
        invalidated->invalidate();
        invalidated->invalidate();
        destroyed.reset();
        settle();
        EXPECT_EQ(fired, (std::vector<std::string>{"immediate", "sooner", "later",
                                                   "restarting, as a text on the heap", "restarted"}));
        sooner->invalidate();
    });
}

INSTANTIATE_TEST_SUITE_P(Schedulers, SchedulingContractTest, testing::ValuesIn(harnesses),
                         caseName<SchedulingHarness>);
// The other queues have no timers.
INSTANTIATE_TEST_SUITE_P(Schedulers, TimerContractTest, testing::Values(harnesses[0], harnesses[1]),
                         caseName<SchedulingHarness>);

TEST(YieldingQueueTest, DelaysOthersByOneItemAndDropsPendingItemsWhenDestroyed)
{
    ManualScheduler scheduler;
    std::vector<int> ran;
    auto queue = std::make_unique<Push::YieldingQueue>(scheduler.mainQueue);
    for (int number = 1; number <= 4; ++number) {
        queue->async([&, number] {
            ran.push_back(number);
            scheduler.mainQueue.async([&, number] { ran.push_back(-number); });
            if (number == 3)
                queue.reset();
        });
    }
    scheduler.runUntilIdle();
    EXPECT_EQ(ran, (std::vector{1, -1, 2, -2, 3, -3}));
}

TEST(WorkerQueueTest, UtilityWorkIsNiceAndItsDestructionMayAddWork)
{
    using Linux::WorkerQueue;
    for (const auto priority : {WorkerQueue::Priority::utility, WorkerQueue::Priority::default_}) {
        std::promise<void> isDone;
        int niceness = 0;
        WorkerQueue queue("nice", priority);
        std::shared_ptr<void> token(nullptr, [&](void*) { queue.async([&] { isDone.set_value(); }); });
        queue.async([&, token = std::move(token)] { niceness = ::getpriority(PRIO_PROCESS, 0); });
        isDone.get_future().wait();
        const int own = ::getpriority(PRIO_PROCESS, 0);
        EXPECT_EQ(niceness, priority == WorkerQueue::Priority::utility ? std::max(10, own) : own);
    }
}

TEST(WorkerQueueTest, DestructorRunsAllPendingItems)
{
    std::promise<void> mayGoOn;
    std::vector<int> ran;
    std::jthread releasing;
    {
        Linux::WorkerQueue queue("ending", Linux::WorkerQueue::Priority::default_);
        queue.async([&] {
            mayGoOn.get_future().wait();
            ran.push_back(1);
            queue.async([&] { ran.push_back(3); });
        });
        queue.async([&] { ran.push_back(2); });
        releasing = std::jthread([&] { mayGoOn.set_value(); });
    }
    EXPECT_EQ(ran, (std::vector{1, 2, 3}));
}

} // namespace
