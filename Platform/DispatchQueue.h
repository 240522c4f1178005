#pragma once

#include <functional>

namespace Platform {

/// A first-in, first-out queue of work items.
///
/// Threads: `async` may be called on any thread. All items of one queue run on one thread.
///
/// Implementations must never run an item inside the `async` call, must end the process if an item throws,
/// and must document what happens to items that are pending when the queue is destroyed.
class DispatchQueue {
public:
    using Work = std::function<void()>;

    virtual ~DispatchQueue() = default;
    virtual void async(Work work) = 0;
};

} // namespace Platform
