#pragma once

#include "Platform/DispatchQueue.h"

#include <memory>

namespace Platform::Push {

/// A queue that schedules its items on another queue one at a time, so that other items of that queue wait
/// for at most one of them.
///
/// Threads: items run on the other queue's thread, on which this object must be destroyed. Pending items are
/// then dropped. Ownership: references the other queue.
class YieldingQueue final : public DispatchQueue {
public:
    explicit YieldingQueue(DispatchQueue& queue);
    ~YieldingQueue() override;
    YieldingQueue(const YieldingQueue&) = delete;
    YieldingQueue& operator=(const YieldingQueue&) = delete;

    void async(Work work) override;

private:
    struct Backlog;

    /// The scheduled item holds it weakly, and does nothing once this object is destroyed.
    std::shared_ptr<Backlog> m_backlog;
};

} // namespace Platform::Push
