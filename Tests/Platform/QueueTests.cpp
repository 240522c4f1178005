#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/Push/YieldingQueue.h"
#include "Tests/Fakes/CaseName.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RunOn.h"

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

/// A queue, given to `body` with a function that runs all pending items.
struct QueueHarness {
    const char* name;
    std::function<void(const std::function<void(DispatchQueue&, const std::function<void()>& settle)>& body)>
        run;
};

const QueueHarness harnesses[] = {
    {"Qt",
     [](const auto& body) {
         int argc = 0;
         Desktop::QtRunLoop loop(std::make_unique<QCoreApplication>(argc, nullptr));
         body(loop, [&] {
             loop.async([&] { loop.quit(); });
             loop.run();
         });
     }},
    {"Worker",
     [](const auto& body) {
         Linux::WorkerQueue queue("contract", Linux::WorkerQueue::Priority::utility);
         body(queue, [&] { runOn(queue); });
     }},
    {"Yielding",
     [](const auto& body) {
         ManualScheduler scheduler;
         Push::YieldingQueue queue(scheduler.mainQueue);
         body(queue, [&] { scheduler.runUntilIdle(); });
     }},
};

class SchedulingContractTest : public testing::TestWithParam<QueueHarness> {};
INSTANTIATE_TEST_SUITE_P(, SchedulingContractTest, testing::ValuesIn(harnesses), caseName<QueueHarness>);

TEST_P(SchedulingContractTest, QueueRunsItemsInOrderAndNeverInsideTheSchedulingCall)
{
    GetParam().run([](DispatchQueue& queue, const auto& settle) {
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
