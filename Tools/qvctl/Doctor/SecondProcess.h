#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Qvctl::Doctor {

/// What a process said of itself.
struct ProcessOutcome {
    /// False: it did not come to its end in time and was killed.
    bool hasEnded = false;
    int exitCode = -1;
    /// Of standard output and standard error together.
    std::string output;
};

/// The program that this process runs.
inline constexpr const char* thisProgram = "/proc/self/exe";

/// Runs a program in the same environment. Throws `std::system_error` when it cannot be started.
ProcessOutcome runSecondProcess(const std::string& program, const std::vector<std::string>& arguments,
                                std::chrono::milliseconds timeout);

} // namespace Qvctl::Doctor
