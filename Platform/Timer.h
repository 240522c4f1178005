#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace Platform {

/// A scheduled timer. Its destruction cancels it, and so does `invalidate()`, which may be called repeatedly
/// and after the timer has fired.
///
/// Threads: main, the destructor included.
class Timer {
public:
    virtual ~Timer() = default;
    virtual void invalidate() = 0;
};

/// Creates one-shot timers.
///
/// Threads: main. Implementations must run the block once, on the main thread, after at least `interval` and
/// never inside `scheduledTimer()`; must let the block destroy its own timer; and must wake up only when a
/// timer is due.
class TimerScheduler {
public:
    using Block = std::function<void()>;

    virtual ~TimerScheduler() = default;
    [[nodiscard]] virtual std::unique_ptr<Timer> scheduledTimer(std::chrono::milliseconds interval,
                                                                Block block) = 0;
};

} // namespace Platform
