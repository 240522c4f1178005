#pragma once

#include "Platform/DispatchQueue.h"

#include <memory>

namespace Platform::Push {

/// A queue whose items run on another queue, one at a time: the next one is scheduled there after the one
/// before it has run. However many items wait here, whatever is scheduled on the other queue waits for one of
/// them at most.
///
/// Threads: items run on the thread of the other queue, where this object must also be destroyed. Items that
/// still wait then are dropped. Ownership: refers to the other queue.
class YieldingQueue final : public DispatchQueue {
public:
    explicit YieldingQueue(DispatchQueue& queue);
    ~YieldingQueue() override;
    YieldingQueue(const YieldingQueue&) = delete;
    YieldingQueue& operator=(const YieldingQueue&) = delete;

    void async(Work work) override;

private:
    struct Backlog;

    /// Shared with the turn that is scheduled, which finds nothing once this object has gone.
    std::shared_ptr<Backlog> m_backlog;
};

} // namespace Platform::Push
