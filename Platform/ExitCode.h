#pragma once

namespace Platform {

/// What a program ends with, after sysexits(3). `checkFailed` is the answer of an examination rather than an
/// error.
enum ExitCode {
    success = 0,
    checkFailed = 1,
    usage = 64,
    noInput = 66,
    unavailable = 69,
    internal = 70,
    configuration = 78
};

} // namespace Platform
