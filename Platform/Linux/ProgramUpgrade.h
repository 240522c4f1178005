#pragma once

#include "Platform/Activity.h"
#include "Platform/Linux/ProgramRestart.h"
#include "Platform/Timer.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace Platform {
class AdapterLog;
class DispatchQueue;
} // namespace Platform

namespace Platform::Linux::Files {
class FileSystemWatcher;
} // namespace Platform::Linux::Files

namespace Platform::Linux {

/// Notices that an upgrade has replaced the file of this program, logs it once, and restarts with the new one
/// when nothing is lost by it: without a window, and `quietTime` after the last change of the file, push or
/// request. No timer runs before the file is replaced.
///
/// A short run shows first that the new program starts. If it does not, the next trials follow after pauses
/// that double, up to `longestPause`.
///
/// Threads: main.
class ProgramUpgrade {
public:
    struct Ports {
        DispatchQueue& mainQueue;
        TimerScheduler& timers;
        const AdapterLog& log;
        ProgramRestart& restart;
        /// Ends the program in an orderly way. Its last act is then the restart.
        std::function<void()> quit;
    };

    static constexpr std::chrono::seconds quietTime{2};
    static constexpr std::chrono::hours longestPause{1};
    /// A trial that takes longer has failed.
    static constexpr std::chrono::seconds longestTrial{10};

    explicit ProgramUpgrade(Ports ports);

    /// Once; this object must outlive the watcher.
    void watch(Files::FileSystemWatcher& watcher);
    void setHasWindow(bool hasWindow);
    /// The work that a restart waits for. Any thread.
    [[nodiscard]] const Activity& activity() const { return m_activity; }

private:
    void check();
    void schedule();
    void startTrial();
    void awaitTrial(std::chrono::milliseconds remaining);
    void restart();
    void postpone();

    const Ports m_ports;
    /// Read on any thread.
    std::atomic<bool> m_isOutdated = false;
    const Activity m_activity;
    bool m_hasWindow = false;
    std::chrono::milliseconds m_pause = quietTime;
    std::unique_ptr<Timer> m_timer;
    std::optional<ProgramTrial> m_trial;
};

} // namespace Platform::Linux
