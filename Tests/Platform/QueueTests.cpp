#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/Push/YieldingQueue.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RunOn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sys/resource.h>
#include <vector>

using namespace Platform;
using namespace std::chrono_literals;

namespace {

/// Expects that the queue runs items in order, and none inside the scheduling call. `settle` waits until all
/// pending items have run.
void expectOrder(DispatchQueue& queue, const std::function<void()>& settle)
{
    std::promise<void> allScheduled;
    std::vector<int> ran;
    bool isInsideCall = true;
    queue.async([&, caller = std::this_thread::get_id()] {
        // On another thread, an item may start before the scheduling call returns.
        if (std::this_thread::get_id() != caller)
            allScheduled.get_future().wait();
        EXPECT_FALSE(isInsideCall);
        ran.push_back(1);
        queue.async([&] { ran.push_back(3); });
        EXPECT_EQ(ran.back(), 1);
    });
    isInsideCall = false;
    queue.async([&] { ran.push_back(2); });
    allScheduled.set_value();
    settle();
    settle();
    EXPECT_EQ(ran, (std::vector{1, 2, 3}));
}

TEST(DispatchQueueTest, RunsItemsInOrderAndNeverInsideTheSchedulingCall)
{
    int argc = 0;
    Desktop::QtRunLoop loop(std::make_unique<QCoreApplication>(argc, nullptr));
    expectOrder(loop, [&] {
        loop.async([&] { loop.quit(); });
        loop.run();
    });
    Linux::WorkerQueue worker("contract", Linux::WorkerQueue::Priority::utility);
    expectOrder(worker, [&] { runOn(worker); });
    ManualScheduler scheduler;
    Push::YieldingQueue yielding(scheduler.mainQueue);
    expectOrder(yielding, [&] { scheduler.runUntilIdle(); });
}

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
    for (int round = 0; round < 100; ++round) { // The first item ends before or after the destructor begins.
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
}

} // namespace
