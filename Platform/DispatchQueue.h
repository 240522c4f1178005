#pragma once

#include <functional>

namespace Platform {

/// A queue of work items, run one after the other in the order of their scheduling.
///
/// Threads: `async` may be called from any thread. All items of one queue run on one thread.
/// Implementers owe: first in, first out; an item never runs inside the call that scheduled it; an item that
/// throws ends the process. Each says what becomes of items that still wait when the queue is destroyed.
class DispatchQueue {
public:
    using Work = std::function<void()>;

    virtual ~DispatchQueue() = default;
    virtual void async(Work work) = 0;
};

} // namespace Platform
