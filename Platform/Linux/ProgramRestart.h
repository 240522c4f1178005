#pragma once

#include "Platform/Linux/ProgramFile.h"

#include <atomic>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Platform::Linux {

/// A run of a program that shows whether it starts. Its destruction kills a run that has not ended.
///
/// Threads: main.
class ProgramTrial {
public:
    /// `command` is the program and its arguments.
    explicit ProgramTrial(std::vector<std::string> command);
    ~ProgramTrial();
    ProgramTrial(const ProgramTrial&) = delete;
    ProgramTrial& operator=(const ProgramTrial&) = delete;

    /// Whether the run succeeded; absent while it runs. Does not block.
    [[nodiscard]] std::optional<bool> outcome();

private:
    /// 0 if it did not start or has ended.
    pid_t m_process = 0;
    bool m_hasSucceeded = false;
};

/// Replaces this process with a fresh one of the program that is now installed at its path. The process ID
/// stays the same.
///
/// Threads: main, where nothing else is said.
class ProgramRestart {
public:
    /// `arguments` are those of the new process, without the name of the program. `process` is "self", or the
    /// PID of another process whose program is started.
    explicit ProgramRestart(std::vector<std::string> arguments, std::string process = "self");

    /// The program of the process; absent if it cannot be found out.
    [[nodiscard]] std::optional<ProgramFile> program() const { return ProgramFile::of(m_process); }

    /// A command that shows whether the installed program starts and knows the arguments. In the middle of an
    /// upgrade it may fail, because a library is missing.
    [[nodiscard]] std::vector<std::string> trialCommand() const;
    /// Lets `performIfRequested()` restart, unless the restart is canceled before or after this.
    void request() { m_isRequested = true; }
    /// Any thread.
    void cancel() { m_isCanceled = true; }
    /// Does not return if it restarts. Everything that needs an end must have been destroyed. A failure is
    /// one line on standard error.
    void performIfRequested() const;

private:
    [[nodiscard]] std::vector<std::string> command() const;

    const std::vector<std::string> m_arguments;
    const std::string m_process;
    bool m_isRequested = false;
    std::atomic<bool> m_isCanceled = false;
};

} // namespace Platform::Linux
