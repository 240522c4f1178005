// Wears the real programs out: kills them, lets what they stand on fail, runs them long and many at once, and
// looks for secrets in what they leave behind. Ends with 1 when something that must hold did not.

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
    CLI::App line("Wears the programs out and demands that they hold.");
    line.require_subcommand(1);
    TrialPrograms programs{QV_PROGRAMS, QV_FAULT_LIBRARY};
    line.add_option("--programs", programs.folder, "Folder of the build to try")
        ->check(CLI::ExistingDirectory);
    int rounds = 300;
    unsigned seed = std::random_device()();
    auto* crash = line.add_subcommand("crash", "Kill at random during updates, history writes and uploads");
    crash->add_option("--rounds", rounds, "How often")->check(CLI::Range(1, most))->capture_default_str();
    crash->add_option("--seed", seed, "Play an earlier run again");
    int depth = 12;
    auto* faults = line.add_subcommand("faults", "Let operations on files fail");
    faults->add_option("--depth", depth, "How many operations of each kind are let fail, one after the other")
        ->check(CLI::Range(1, most))
        ->capture_default_str();
    auto* disturbances = line.add_subcommand(
        "disturbances", "Let clock, machine, limits, backend and session bus get in the way");
    int messages = 3000;
    auto* burst = line.add_subcommand("burst", "Deliver many pushes at once, and end in the middle of them");
    burst->add_option("--messages", messages, "How many")->check(CLI::Range(1, most))->capture_default_str();
    double minutes = 10;
    auto* soak = line.add_subcommand("soak", "Run at full speed and look for growth");
    soak->add_option("--minutes", minutes, "How long")->check(CLI::PositiveNumber)->capture_default_str();
    int devices = 100;
    auto* fleet = line.add_subcommand("fleet", "Run many devices at once");
    fleet->add_option("--devices", devices, "How many")->check(CLI::Range(1, most))->capture_default_str();
    auto* secrets = line.add_subcommand("secrets", "Look for secrets where none may be");
    double seconds = 60;
    auto* attacker = line.add_subcommand("attacker", "Let another user race to have a policy believed");
    attacker->add_option("--seconds", seconds, "How long")->check(CLI::PositiveNumber)->capture_default_str();
    CLI11_PARSE(line, argc, argv);
    try {
        if (*crash)
            crashTrial(programs, rounds, seed);
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
