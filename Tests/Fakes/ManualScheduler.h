#pragma once

#include "Platform/Clock.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"

#include <chrono>
#include <deque>
#include <list>
#include <memory>

/// Clock, timers and queues of a test, on the test's own thread. Nothing runs until the test says so, and
/// time passes only when the test lets it.
class ManualScheduler final : public Platform::Clock, public Platform::TimerScheduler {
public:
    class Queue final : public Platform::DispatchQueue {
    public:
        void async(Work work) override { m_waiting.push_back(std::move(work)); }
        bool runNext();

    private:
        std::deque<Work> m_waiting;
    };

    [[nodiscard]] Platform::Date now() const override;
    [[nodiscard]] std::unique_ptr<Platform::Timer> scheduledTimer(std::chrono::milliseconds interval,
                                                                  Block block) override;

    /// Runs what waits in the queues, and what that schedules, until nothing waits.
    void runUntilIdle();
    /// Lets time pass, firing each timer at its moment.
    void advance(std::chrono::milliseconds duration);

    Queue mainQueue;
    Queue utilityQueue;

private:
    class ManualTimer;
    struct Pending {
        std::chrono::milliseconds due;
        Block block;
        std::weak_ptr<bool> isWanted;
    };

    std::chrono::milliseconds m_elapsed{0};
    std::list<Pending> m_pending;
};
