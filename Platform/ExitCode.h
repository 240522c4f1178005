#pragma once

namespace Platform {

/// The exit codes of the programs, following sysexits(3). `checkFailed` is the result of a check that found
/// problems, not an error of the program. `timedOut` is what sysexits(3) calls a temporary failure.
enum ExitCode {
    success = 0,
    checkFailed = 1,
    usage = 64,
    noInput = 66,
    unavailable = 69,
    internal = 70,
    timedOut = 75,
    configuration = 78
};

} // namespace Platform
