#pragma once

#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"

#include <QCoreApplication>

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>

namespace Platform::Desktop {

/// The main queue and the timers on Qt's event loop. One per process. Its destruction drops pending items.
///
/// Threads: main, the destructor included; `async` and `quit` may be called on any.
class QtRunLoop final : public DispatchQueue, public TimerScheduler {
public:
    explicit QtRunLoop(std::unique_ptr<QCoreApplication> application);

    void async(Work work) override;
    std::unique_ptr<Timer> scheduledTimer(std::chrono::milliseconds interval, Block block) override;

    /// Blocks until `quit()`, and returns at once if that was called before.
    void run();
    /// Makes `run()` return after the current item. Pending items stay queued for the next `run()`.
    void quit();

private:
    void wakeUp();
    void handleWakeUp();
    void runWaiting();

    std::unique_ptr<QCoreApplication> m_application;
    std::mutex m_mutex;
    std::deque<Work> m_waiting;
    std::atomic<bool> m_isQuitRequested = false;
};

} // namespace Platform::Desktop
