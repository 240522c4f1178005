#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace Platform {

/// One scheduled timer. Destroying it cancels it; so does `invalidate()`, which may be called again, and also
/// after it fired.
///
/// Threads: main only, the destructor included.
class Timer {
public:
    virtual ~Timer() = default;
    virtual void invalidate() = 0;
};

/// Makes one-shot timers of the main thread.
///
/// Implementers owe: the block runs on the main thread, once, not before `interval` has passed and never
/// inside the scheduling call; the block may destroy or replace its own timer; a pending timer keeps no other
/// wake-ups than its own.
class TimerScheduler {
public:
    using Block = std::function<void()>;

    virtual ~TimerScheduler() = default;
    [[nodiscard]] virtual std::unique_ptr<Timer> scheduledTimer(std::chrono::milliseconds interval,
                                                                Block block) = 0;
};

} // namespace Platform
