// Stress tests of the real programs: kills them, injects faults, runs them for long or in great number, and
// searches their output for secrets. Exits with 1 if a requirement is not met.

#include "Tests/Trials/TrialDevice.h"
#include "Tests/Trials/Trials.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <functional>
#include <random>

int main(int argc, char** argv)
{
    constexpr int violated = 1;
    constexpr int failed = 70;
    constexpr int most = 1'000'000;
    CLI::App line("Run stress tests on the real programs.");
    line.require_subcommand(1);
    TrialPrograms programs{QV_PROGRAMS, QV_FAULT_LIBRARY};
    line.add_option("--programs", programs.folder, "Build folder of the programs to test")
        ->check(CLI::ExistingDirectory);
    const auto add = [&](const char* name, const char* description, const std::function<void()>& trial) {
        return line.add_subcommand(name, description)->final_callback(trial);
    };
    const auto addCount = [](CLI::App* trial, const char* option, int& count, const char* description) {
        trial->add_option(option, count, description)->check(CLI::Range(1, most))->capture_default_str();
    };
    unsigned seed = std::random_device()();
    const auto addSeed = [&](CLI::App* trial) {
        trial->add_option("--seed", seed, "Seed of an earlier run to repeat");
    };
    const auto addDuration = [](CLI::App* trial, const char* option, double& duration) {
        trial->add_option(option, duration, "Duration")->check(CLI::PositiveNumber)->capture_default_str();
    };
    int rounds = 300;
    auto* crash = add("crash", "Kill at random during updates, history writes and uploads",
                      [&] { crashTrial(programs, rounds, seed); });
    addCount(crash, "--rounds", rounds, "Number of kills");
    addSeed(crash);
    int cuts = 300;
    auto* powerCut = add("powercut", "Cut the power during updates, pushes and a first start",
                         [&] { powerCutTrial(programs, cuts, seed); });
    addCount(powerCut, "--cuts", cuts, "Number of cuts");
    addSeed(powerCut);
    int depth = 12;
    addCount(add("faults", "Make file operations fail", [&] { faultTrial(programs, depth); }), "--depth",
             depth, "Number of operations of each kind to fail, one at a time");
    add("disturbances", "Disturb clock, stores, limits, backend and session bus",
        [&] { disturbanceTrial(programs); });
    int messages = 3000;
    addCount(add("burst", "Deliver many pushes at once, and exit during delivery",
                 [&] { burstTrial(programs, messages); }),
             "--messages", messages, "Number of pushes");
    double minutes = 10;
    addDuration(add("soak", "Run at full speed and check for growth", [&] { soakTrial(programs, minutes); }),
                "--minutes", minutes);
    int devices = 100;
    addCount(add("fleet", "Run many devices at once", [&] { fleetTrial(programs, devices); }), "--devices",
             devices, "Number of devices");
    add("secrets", "Search logs, output and files for secrets", [&] { secretsTrial(programs); });
    int races = 1000;
    auto* wait = add("wait", "Change the configuration while qvctl wait starts",
                     [&] { waitTrial(programs, races, seed); });
    addCount(wait, "--races", races, "Number of changes");
    addSeed(wait);
    double seconds = 60;
    addDuration(
        add("attacker", "Have another user try to plant a policy file", [&] { attackerTrial(seconds); }),
        "--seconds", seconds);
    try {
        line.parse(argc, argv); // Runs the trial.
        return 0;
    } catch (const CLI::ParseError& error) {
        return line.exit(error);
    } catch (const Violation& violation) {
        fmt::print("VIOLATED: {}\n", violation.what());
        return violated;
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}: {}\n", argv[0], error.what());
        return failed;
    }
}
