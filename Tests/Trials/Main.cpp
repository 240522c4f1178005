// Stress tests of the real programs: injects faults, cuts the power, runs them for long, and searches their
// output for secrets. Exits with 1 if a requirement is not met.

#include "Tests/Trials/Trials.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <random>

int main(int argc, char** argv)
{
    constexpr int violated = 1;
    constexpr int failed = 70;
    CLI::App line("Run stress tests on the real programs.");
    line.require_subcommand(1);
    TrialPrograms programs{QV_PROGRAMS, QV_FAULT_LIBRARY};
    line.add_option("--programs", programs.folder, "Build folder of the programs to test")
        ->check(CLI::ExistingDirectory);
    const auto add = [&](const char* name, const char* description, const std::function<void()>& trial) {
        return line.add_subcommand(name, description)->final_callback(trial);
    };
    const auto addNumber = [](CLI::App* trial, const char* option, auto& number, const char* description) {
        trial->add_option(option, number, description)->check(CLI::PositiveNumber)->capture_default_str();
    };
    unsigned seed = std::random_device()();
    int cuts = 300;
    auto* powerCut = add("powercut", "Cut the power during updates, pushes and a first start",
                         [&] { powerCutTrial(programs, cuts, seed); });
    addNumber(powerCut, "--cuts", cuts, "Number of cuts at random");
    powerCut->add_option("--seed", seed, "Seed of an earlier run to repeat");
    int depth = 12;
    addNumber(add("faults", "Make file operations fail", [&] { faultTrial(programs, depth); }), "--depth",
              depth, "Number of operations of each kind to fail, one at a time");
    add("disturbances", "Disturb clock, stores, limits, backend and session bus",
        [&] { disturbanceTrial(programs); });
    double minutes = 10;
    addNumber(add("soak", "Run at full speed and check for growth", [&] { soakTrial(programs, minutes); }),
              "--minutes", minutes, "Duration");
    add("secrets", "Search logs, output and files for secrets", [&] { secretsTrial(programs); });
    double seconds = 60;
    addNumber(
        add("attacker", "Have another user try to plant a policy file", [&] { attackerTrial(seconds); }),
        "--seconds", seconds, "Duration");
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
