#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Qvctl::Doctor {

/// The outcome of a child process.
struct ProcessOutcome {
    /// False if the process was killed because it exceeded the time limit.
    bool hasEnded = false;
    /// -1 if it was killed by a signal.
    int exitCode = -1;
    /// Standard output and standard error.
    std::string output;
};

/// The executable of this process.
inline constexpr const char* thisProgram = "/proc/self/exe";

/// Runs a program in this process's environment until it exits. Throws `std::system_error` if it
/// cannot be started.
ProcessOutcome runSecondProcess(const std::string& program, const std::vector<std::string>& arguments,
                                std::chrono::milliseconds timeout);

} // namespace Qvctl::Doctor
