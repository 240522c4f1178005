#pragma once

#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"

#include <QCoreApplication>

#include <memory>

namespace Platform::Desktop {

/// The main thread as Qt runs it: the main queue and the timers on its event loop.
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
    void quit();

private:
    class TerminationSignals;

    QCoreApplication m_application;
    std::unique_ptr<TerminationSignals> m_terminationSignals;
};

} // namespace Platform::Desktop
