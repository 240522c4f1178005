#pragma once

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace Platform::Linux {

/// Takes the signals that end this process or bring it to the front.
///
/// Threads: main. The handlers run on a thread of this object, one at a time. Source: sigwait(3).
class ProcessSignals {
public:
    /// The signal by which a later launch asks this one to come to the front.
    static constexpr int activationSignal = SIGUSR1;

    /// Has the signals wait for a `ProcessSignals`. Every thread has to, so call it before there is another
    /// one.
    static void block();

    /// Calls `onEnd` for SIGTERM, SIGINT and SIGHUP, and `onActivation` for `activationSignal`, those that
    /// have waited included.
    ProcessSignals(std::function<void()> onEnd, std::function<void()> onActivation);
    /// Waits for a handler that is running. From then on the signals do what they do to any process.
    ~ProcessSignals();
    ProcessSignals(const ProcessSignals&) = delete;
    ProcessSignals& operator=(const ProcessSignals&) = delete;

private:
    void run(const std::function<void()>& onEnd, const std::function<void()>& onActivation) const;

    std::atomic<bool> m_isStopping = false;
    std::thread m_thread;
};

} // namespace Platform::Linux
