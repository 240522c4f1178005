#pragma once

#include <atomic>
#include <string>
#include <vector>

namespace Platform::Linux {

/// Replaces this process with a fresh one of the program that is now installed at its path. The process ID
/// stays the same.
///
/// Threads: main, where nothing else is said.
class ProgramRestart {
public:
    /// `arguments` are those of the new process, without the name of the program.
    explicit ProgramRestart(std::vector<std::string> arguments);

    /// Whether the installed program starts and knows the arguments: runs it with `--version`. In the middle
    /// of an upgrade it may not, because a library is missing. Blocks for at most 10 s.
    [[nodiscard]] bool isPossible() const;
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
    bool m_isRequested = false;
    std::atomic<bool> m_isCanceled = false;
};

} // namespace Platform::Linux
