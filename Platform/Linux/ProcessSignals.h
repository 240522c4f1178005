#pragma once

#include <atomic>
#include <csignal>
#include <functional>
#include <mutex>
#include <thread>

namespace Platform::Linux {

/// Handles the signals that end this process, bring it to the front or make it read its policy again.
///
/// Threads: `setReloadHandler()` any, all else main. The handlers run on a thread of this object, one at a
/// time. Source: sigwait(3).
class ProcessSignals {
public:
    /// Sent by a later launch to bring this instance to the front.
    static constexpr int activationSignal = SIGUSR1;
    /// Sent by `qvctl reload`. Not SIGHUP, which ends an app whose terminal is closed.
    static constexpr int reloadSignal = SIGUSR2;

    /// Keeps the signals pending until there is a `ProcessSignals`. Call it before starting another thread,
    /// so that every thread inherits the signal mask.
    static void block();

    /// Calls `onEnd` for SIGTERM, SIGINT and SIGHUP, and `onActivation` for `activationSignal`, including for
    /// pending signals.
    ProcessSignals(std::function<void()> onEnd, std::function<void()> onActivation);
    /// Waits for a running handler, then restores the signals' default behavior.
    ~ProcessSignals();
    /// Replaces the handler of `reloadSignal`, at first none. Waits for a running one. The signal has no
    /// effect without a handler.
    void setReloadHandler(std::function<void()> handler);
    ProcessSignals(const ProcessSignals&) = delete;
    ProcessSignals& operator=(const ProcessSignals&) = delete;

private:
    void run(const std::function<void()>& onEnd, const std::function<void()>& onActivation);
    void reload();

    std::atomic<bool> m_isStopping = false;
    std::mutex m_mutex;
    std::function<void()> m_onReload;
    std::thread m_thread;
};

} // namespace Platform::Linux
