#include "Platform/Push/YieldingQueue.h"

#include <deque>
#include <mutex>
#include <utility>

namespace Platform::Push {

struct YieldingQueue::Backlog {
    explicit Backlog(DispatchQueue& theQueue) : queue(theQueue) {}

    static void scheduleTurn(const std::shared_ptr<Backlog>& backlog)
    {
        backlog->queue.async([weak = std::weak_ptr(backlog)] {
            if (const auto locked = weak.lock())
                takeTurn(locked);
        });
    }

    static void takeTurn(const std::shared_ptr<Backlog>& backlog)
    {
        Work work;
        {
            const std::lock_guard lock(backlog->mutex);
            work = std::move(backlog->waiting.front());
            backlog->waiting.pop_front();
        }
        work();
        {
            const std::lock_guard lock(backlog->mutex);
            backlog->isTurnScheduled = !backlog->waiting.empty();
            if (!backlog->isTurnScheduled)
                return;
        }
        scheduleTurn(backlog);
    }

    DispatchQueue& queue;
    std::mutex mutex;
    std::deque<Work> waiting;
    /// Whether a turn is scheduled or running.
    bool isTurnScheduled = false;
};

YieldingQueue::YieldingQueue(DispatchQueue& queue) : m_backlog(std::make_shared<Backlog>(queue)) {}

YieldingQueue::~YieldingQueue() = default;

void YieldingQueue::async(Work work)
{
    {
        const std::lock_guard lock(m_backlog->mutex);
        m_backlog->waiting.push_back(std::move(work));
        if (std::exchange(m_backlog->isTurnScheduled, true))
            return;
    }
    Backlog::scheduleTurn(m_backlog);
}

} // namespace Platform::Push
