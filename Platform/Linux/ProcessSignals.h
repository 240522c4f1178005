#pragma once

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace Platform::Linux {

/// Handles the signals that end this process or bring it to the front.
///
/// Threads: main. The handlers run on a thread of this object, one at a time. Source: sigwait(3).
class ProcessSignals {
public:
    /// Sent by a later launch to bring this instance to the front.
    static constexpr int activationSignal = SIGUSR1;

    /// Keeps the signals pending until there is a `ProcessSignals`. Call it before starting another thread,
    /// so that every thread inherits the signal mask.
    static void block();

    /// Calls `onEnd` for SIGTERM, SIGINT and SIGHUP, and `onActivation` for `activationSignal`, including for
    /// pending signals.
    ProcessSignals(std::function<void()> onEnd, std::function<void()> onActivation);
    /// Waits for a running handler, then restores the signals' default behavior.
    ~ProcessSignals();
    ProcessSignals(const ProcessSignals&) = delete;
    ProcessSignals& operator=(const ProcessSignals&) = delete;

private:
    void run(const std::function<void()>& onEnd, const std::function<void()>& onActivation) const;

    std::atomic<bool> m_isStopping = false;
    std::thread m_thread;
};

} // namespace Platform::Linux
