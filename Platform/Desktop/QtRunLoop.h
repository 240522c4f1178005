#pragma once

#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <deque>
#include <memory>
#include <mutex>

namespace Platform::Desktop {

/// The main thread as Qt runs it: the main queue and the timers on its event loop. One per process.
/// Items that still wait at its end are dropped.
///
/// Threads: made, run and destroyed on the main thread; `async` and `quit` from any.
class QtRunLoop final : public DispatchQueue, public TimerScheduler {
public:
    /// Refers to its arguments for as long as it lives. From now on SIGTERM, SIGINT and SIGHUP end `run()`.
    QtRunLoop(int& argc, char** argv);
    ~QtRunLoop() override;

    void async(Work work) override;
    std::unique_ptr<Timer> scheduledTimer(std::chrono::milliseconds interval, Block block) override;

    /// Runs until `quit()`, which may have been called before.
    void run();
    /// What waits in the queue at that moment still runs.
    void quit() const;

private:
    void runWaiting();

    QCoreApplication m_application;
    std::mutex m_mutex;
    std::deque<Work> m_waiting;
    /// Wakes the main thread for work from other threads and for signals.
    int m_pipeReadEnd = -1;
    int m_pipeWriteEnd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace Platform::Desktop
