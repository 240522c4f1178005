// Stress tests of the real programs: kills them, injects faults, runs them for long or in great number, and
// searches their output for secrets. Exits with 1 if a requirement is not met.

#include "Tests/Trials/TrialDevice.h"
#include "Tests/Trials/Trials.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
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
    int rounds = 300;
    unsigned seed = std::random_device()();
    auto* crash = line.add_subcommand("crash", "Kill at random during updates, history writes and uploads");
    crash->add_option("--rounds", rounds, "Number of kills")
        ->check(CLI::Range(1, most))
        ->capture_default_str();
    crash->add_option("--seed", seed, "Seed of an earlier run to repeat");
    int cuts = 300;
    auto* powerCut =
        line.add_subcommand("powercut", "Cut the power during updates, pushes and a first start");
    powerCut->add_option("--cuts", cuts, "Number of cuts")->check(CLI::Range(1, most))->capture_default_str();
    powerCut->add_option("--seed", seed, "Seed of an earlier run to repeat");
    int depth = 12;
    auto* faults = line.add_subcommand("faults", "Make file operations fail");
    faults->add_option("--depth", depth, "Number of operations of each kind to fail, one at a time")
        ->check(CLI::Range(1, most))
        ->capture_default_str();
    auto* disturbances =
        line.add_subcommand("disturbances", "Disturb clock, stores, limits, backend and session bus");
    int messages = 3000;
    auto* burst = line.add_subcommand("burst", "Deliver many pushes at once, and exit during delivery");
    burst->add_option("--messages", messages, "Number of pushes")
        ->check(CLI::Range(1, most))
        ->capture_default_str();
    double minutes = 10;
    auto* soak = line.add_subcommand("soak", "Run at full speed and check for growth");
    soak->add_option("--minutes", minutes, "Duration")->check(CLI::PositiveNumber)->capture_default_str();
    int devices = 100;
    auto* fleet = line.add_subcommand("fleet", "Run many devices at once");
    fleet->add_option("--devices", devices, "Number of devices")
        ->check(CLI::Range(1, most))
        ->capture_default_str();
    auto* secrets = line.add_subcommand("secrets", "Search logs, output and files for secrets");
    int races = 1000;
    auto* wait = line.add_subcommand("wait", "Change the configuration while qvctl wait starts");
    wait->add_option("--races", races, "Number of changes")
        ->check(CLI::Range(1, most))
        ->capture_default_str();
    wait->add_option("--seed", seed, "Seed of an earlier run to repeat");
    double seconds = 60;
    auto* attacker = line.add_subcommand("attacker", "Have another user try to plant a policy file");
    attacker->add_option("--seconds", seconds, "Duration")->check(CLI::PositiveNumber)->capture_default_str();
    CLI11_PARSE(line, argc, argv);
    try {
        if (*crash)
            crashTrial(programs, rounds, seed);
        else if (*powerCut)
            powerCutTrial(programs, cuts, seed);
        else if (*faults)
            faultTrial(programs, depth);
        else if (*disturbances)
            disturbanceTrial(programs);
        else if (*burst)
            burstTrial(programs, messages);
        else if (*soak)
            soakTrial(programs, minutes);
        else if (*fleet)
            fleetTrial(programs, devices);
        else if (*secrets)
            secretsTrial(programs);
        else if (*wait)
            waitTrial(programs, races, seed);
        else if (*attacker)
            attackerTrial(seconds);
        return 0;
    } catch (const Violation& violation) {
        fmt::print("VIOLATED: {}\n", violation.what());
        return violated;
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}: {}\n", argv[0], error.what());
        return failed;
    }
}
