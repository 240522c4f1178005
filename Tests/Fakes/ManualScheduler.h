#pragma once

#include "Platform/Clock.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

/// Clock, timers and queues on the test's thread. Work runs only when the test calls `runUntilIdle()`,
/// `advance()` or `Queue::runNext()`.
class ManualScheduler final : public Platform::Clock, public Platform::TimerScheduler {
public:
    class Queue final : public Platform::DispatchQueue {
    public:
        /// Any thread, unlike everything else.
        void async(Work work) override
        {
            const std::lock_guard lock(m_mutex);
            m_waiting.push_back(std::move(work));
            m_itemAdded.notify_one();
        }
        /// Waits until there is an item; returns false after 20 s.
        bool waitForItem()
        {
            std::unique_lock lock(m_mutex);
            return m_itemAdded.wait_for(lock, std::chrono::seconds(20),
                                        [this] { return !m_waiting.empty(); });
        }
        /// Runs the next work item; returns false if the queue is empty.
        bool runNext()
        {
            std::unique_lock lock(m_mutex);
            if (m_waiting.empty())
                return false;
            const Work work = std::move(m_waiting.front());
            m_waiting.pop_front();
            lock.unlock();
            const bool wasRunning = std::exchange(m_isRunning, true); // Work may run the scheduler, too.
            work();
            m_isRunning = wasRunning;
            return true;
        }
        /// Returns whether one of its items is running. Fakes and tests use it to check where they are
        /// called.
        [[nodiscard]] bool isRunning() const { return m_isRunning; }

    private:
        std::mutex m_mutex;
        std::condition_variable m_itemAdded;
        std::deque<Work> m_waiting;
        bool m_isRunning = false;
    };

    [[nodiscard]] Platform::Date now() const override
    {
        return {std::chrono::duration<double>(m_elapsed).count()};
    }
    /// Throws on the utility queue, because timers belong to the main thread.
    [[nodiscard]] std::unique_ptr<Platform::Timer> scheduledTimer(std::chrono::milliseconds interval,
                                                                  Block block) override
    {
        if (utilityQueue.isRunning())
            throw std::logic_error("timer scheduled on the utility queue");
        auto timer = std::make_unique<ManualTimer>();
        m_pending.emplace(m_elapsed + interval, Pending{std::move(block), timer->validity});
        return timer;
    }

    /// Runs queued work until both queues are empty.
    void runUntilIdle()
    {
        while (mainQueue.runNext() || utilityQueue.runNext()) {
        }
    }
    /// Advances the clock, firing each timer when it is due.
    void advance(std::chrono::milliseconds duration)
    {
        const auto end = m_elapsed + duration;
        for (runUntilIdle(); !m_pending.empty() && m_pending.begin()->first <= end; runUntilIdle()) {
            const auto next = m_pending.extract(m_pending.begin());
            m_elapsed = next.key();
            if (!next.mapped().validity.expired())
                next.mapped().block();
        }
        m_elapsed = end;
    }

    Queue mainQueue;
    Queue utilityQueue;

private:
    struct ManualTimer final : Platform::Timer {
        void invalidate() override { validity.reset(); }
        std::shared_ptr<bool> validity = std::make_shared<bool>(true);
    };
    struct Pending {
        Block block;
        /// Expired if the timer was invalidated.
        std::weak_ptr<bool> validity;
    };

    std::chrono::milliseconds m_elapsed{0};
    /// By the time when they are due.
    std::multimap<std::chrono::milliseconds, Pending> m_pending;
};
