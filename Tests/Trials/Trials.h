#pragma once

#include <filesystem>

/// Where what is tried lies.
struct TrialPrograms {
    /// The folder of the build.
    std::filesystem::path folder;
    /// What is loaded into a program to make it fail.
    std::filesystem::path faultLibrary;
};

// Each plays until it is through, prints what it saw, and throws `Violation` when something that must hold
// did not.

/// Kills the application and the console, `rounds` times, at operations on files and at moments chosen at
/// random while a configuration is applied, pushes arrive and the token is uploaded.
void crashTrial(const TrialPrograms& programs, int rounds, unsigned seed);
/// Lets operations on files fail, each of the first `depth` of a push and a change.
void faultTrial(const TrialPrograms& programs, int depth);
/// Lets clock, machine, other processes, limits, backend and session bus get in the way.
void disturbanceTrial(const TrialPrograms& programs);
/// `messages` encrypted pushes at once, first answered to the end, then cut off by SIGTERM.
void burstTrial(const TrialPrograms& programs, int messages);
/// Changes, pushes and uploads at full speed for so long, watched for growth.
void soakTrial(const TrialPrograms& programs, double minutes);
/// So many devices with one backend, reconfigured and pushed to all at once.
void fleetTrial(const TrialPrograms& programs, int devices);
/// Looks for what must stay secret in everything that anybody gets to see.
void secretsTrial(const TrialPrograms& programs);
/// Has another user race for this long to get a policy believed. Prints that it is skipped unless run by
/// root.
void attackerTrial(double seconds);
