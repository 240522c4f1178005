#include "Tests/Fakes/ManualScheduler.h"

#include <stdexcept>
#include <utility>

class ManualScheduler::ManualTimer final : public Platform::Timer {
public:
    explicit ManualTimer(std::shared_ptr<bool> validity) : m_validity(std::move(validity)) {}
    void invalidate() override { m_validity.reset(); }

private:
    std::shared_ptr<bool> m_validity;
};

void ManualScheduler::Queue::async(Work work)
{
    const std::lock_guard lock(m_mutex);
    m_waiting.push_back(std::move(work));
    m_itemAdded.notify_one();
}

bool ManualScheduler::Queue::waitForItem()
{
    std::unique_lock lock(m_mutex);
    return m_itemAdded.wait_for(lock, std::chrono::seconds(20), [this] { return !m_waiting.empty(); });
}

bool ManualScheduler::Queue::runNext()
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

Platform::Date ManualScheduler::now() const
{
    return {std::chrono::duration<double>(m_elapsed).count()};
}

std::unique_ptr<Platform::Timer> ManualScheduler::scheduledTimer(std::chrono::milliseconds interval,
                                                                 Block block)
{
    if (utilityQueue.isRunning())
        throw std::logic_error("timer scheduled on the utility queue");
    auto validity = std::make_shared<bool>(true);
    m_pending.emplace(m_elapsed + interval, Pending{std::move(block), validity});
    return std::make_unique<ManualTimer>(std::move(validity));
}

void ManualScheduler::runUntilIdle()
{
    while (mainQueue.runNext() || utilityQueue.runNext()) {
    }
}

void ManualScheduler::advance(std::chrono::milliseconds duration)
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
