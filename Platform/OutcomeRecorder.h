#pragma once

#include "Platform/Outcome.h"

#include <chrono>
#include <memory>
#include <mutex>

namespace Platform {

class Clock;
class DispatchQueue;
class Timer;
class TimerScheduler;

/// Stores the last outcome of each area.
///
/// Writes the first outcome at once and those of the following second together, in one commit, so that a
/// burst of pushes or uploads costs one commit per second. No timer runs while nothing happens. A crash can
/// lose the outcomes of the last second.
///
/// Threads: `record` on any thread, everything else on the main thread. Errors: those of the store; they
/// affect nothing else.
class OutcomeRecorder {
public:
    struct Ports {
        /// The system's own store.
        UserDefaults& store;
        const Clock& clock;
        DispatchQueue& mainQueue;
        TimerScheduler& timers;
    };

    static constexpr std::chrono::milliseconds interval = std::chrono::seconds(1);

    explicit OutcomeRecorder(const Ports& ports);
    /// Writes pending outcomes.
    ~OutcomeRecorder();
    OutcomeRecorder(const OutcomeRecorder&) = delete;
    OutcomeRecorder& operator=(const OutcomeRecorder&) = delete;

    void record(Outcome::Subject subject, Outcome::Result result, Outcome::Kind kind = Outcome::Kind::none,
                std::int64_t code = 0);

private:
    void writePending();

    const Ports m_ports;
    std::mutex m_mutex;
    Outcomes m_pending;
    /// Whether the main queue or the timer will write `m_pending`.
    bool m_isScheduled = false;
    /// Checked by work on the main queue, which may run after this object is destroyed.
    const std::shared_ptr<const bool> m_life = std::make_shared<const bool>(true);
    /// Runs for `interval` after each commit.
    std::unique_ptr<Timer> m_pause;
};

} // namespace Platform
