#pragma once

#include "Platform/Clock.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

/// Clock, timers and queues on the test's thread. Work runs only when the test calls `runUntilIdle()`,
/// `advance()` or `Queue::runNext()`.
class ManualScheduler final : public Platform::Clock, public Platform::TimerScheduler {
public:
    class Queue final : public Platform::DispatchQueue {
    public:
        /// Any thread, unlike everything else.
        void async(Work work) override;
        /// Waits until there is an item; returns false after 20 s.
        bool waitForItem();
        /// Runs the next work item; returns false if the queue is empty.
        bool runNext();
        /// Returns whether one of its items is running. Fakes and tests use it to check where they are
        /// called.
        [[nodiscard]] bool isRunning() const { return m_isRunning; }

    private:
        std::mutex m_mutex;
        std::condition_variable m_itemAdded;
        std::deque<Work> m_waiting;
        bool m_isRunning = false;
    };

    [[nodiscard]] Platform::Date now() const override;
    /// Throws on the utility queue, because timers belong to the main thread.
    [[nodiscard]] std::unique_ptr<Platform::Timer> scheduledTimer(std::chrono::milliseconds interval,
                                                                  Block block) override;

    /// Runs queued work until both queues are empty.
    void runUntilIdle();
    /// Advances the clock, firing each timer when it is due.
    void advance(std::chrono::milliseconds duration);

    Queue mainQueue;
    Queue utilityQueue;

private:
    class ManualTimer;
    struct Pending {
        Block block;
        /// Expired if the timer was invalidated.
        std::weak_ptr<bool> validity;
    };

    std::chrono::milliseconds m_elapsed{0};
    /// By the time when they are due.
    std::multimap<std::chrono::milliseconds, Pending> m_pending;
};
