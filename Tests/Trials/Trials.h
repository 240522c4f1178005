#pragma once

#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>

/// A requirement of a trial is not met.
class Violation : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <typename... Arguments>
void require(bool isTrue, fmt::format_string<Arguments...> what, Arguments&&... arguments)
{
    if (!isTrue)
        throw Violation(fmt::format(what, std::forward<Arguments>(arguments)...));
}

struct TrialPrograms {
    /// The build folder.
    std::filesystem::path folder;
    /// The library that injects faults into a program.
    std::filesystem::path faultLibrary;
};

// Each trial prints its results and throws `Violation` when a requirement is not met.

/// Cuts the power during a first start, updates, pushes and the replacement of a damaged store: after each
/// file operation with each single loss or, as by a kill, with none, and `cuts` times at random. Also
/// requires that it notices each kind of missing synchronization.
void powerCutTrial(const TrialPrograms& programs, int cuts, unsigned seed);
/// Makes each of the first `depth` file operations of a push and a change fail, one after the other.
void faultTrial(const TrialPrograms& programs, int depth);
/// Disturbs the application: clock jumps, locked stores, resource limits, a dead backend or session bus, and
/// so on.
void disturbanceTrial(const TrialPrograms& programs);
/// Runs changes, pushes and uploads at full speed while the services of the desktop restart, and checks for
/// growth.
void soakTrial(const TrialPrograms& programs, double minutes);
/// Searches logs, output, records and file names for secrets.
void secretsTrial(const TrialPrograms& programs);
/// Has another user plant policy files, in a race with the reader. Skipped, with a message, unless run as
/// root.
void attackerTrial(double seconds);
