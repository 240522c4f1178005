#pragma once

#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <deque>
#include <functional>
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
    /// The signal by which a later launch asks this one to come to the front.
    static constexpr int activationSignal = SIGUSR1;

    /// From now on SIGTERM, SIGINT and SIGHUP end `run()`.
    explicit QtRunLoop(std::unique_ptr<QCoreApplication> application);
    ~QtRunLoop() override;

    void async(Work work) override;
    std::unique_ptr<Timer> scheduledTimer(std::chrono::milliseconds interval, Block block) override;

    /// Runs until `quit()`, which may have been called before.
    void run();
    /// `run()` returns as soon as the item under way has run; the others wait for the next `run()`.
    void quit() const;

    /// Called when `activationSignal` arrives; nothing happens then until it is set.
    void onActivation(std::function<void()> handler) { m_activationHandler = std::move(handler); }

private:
    void wakeUp() const;
    void handleWakeUp();
    void runWaiting();

    std::unique_ptr<QCoreApplication> m_application;
    std::function<void()> m_activationHandler = [] {};
    std::mutex m_mutex;
    std::deque<Work> m_waiting;
    /// Wakes the main thread for work from other threads and for signals.
    int m_pipeReadEnd = -1;
    int m_pipeWriteEnd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace Platform::Desktop
