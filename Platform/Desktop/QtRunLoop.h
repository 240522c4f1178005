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

/// The main thread as Qt runs it: the main queue and the timers on its event loop. One per process.
/// Items that still wait when it is destroyed are dropped.
///
/// Threads: made, run and destroyed on the main thread; `async` and `quit` from any.
class QtRunLoop final : public DispatchQueue, public TimerScheduler {
public:
    explicit QtRunLoop(std::unique_ptr<QCoreApplication> application);

    void async(Work work) override;
    std::unique_ptr<Timer> scheduledTimer(std::chrono::milliseconds interval, Block block) override;

    /// Runs until `quit()`, which may have been called before.
    void run();
    /// `run()` returns as soon as the item under way has run; the others wait for the next `run()`.
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
