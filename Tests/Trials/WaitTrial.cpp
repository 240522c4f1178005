#include "Core/Constants.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Platform/SystemClock.h"
#include "Tests/Trials/StoreFile.h"
#include "Tests/Trials/TrialDevice.h"
#include "Tests/Trials/Trials.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <thread>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

/// Stores a snapshot in the place of the app.
void storeSnapshot(StoreFile& suite, std::int64_t version)
{
    namespace Keys = Core::Constants::SnapshotKeys;
    Core::ValidatedConfig config;
    config.deviceId = std::to_string(version);
    const auto snapshot =
        Core::ConfigurationSnapshot::make(std::move(config), version, Platform::SystemClock().now());
    const std::array<Platform::UserDefaults::Entry, 2> entries{
        {{Keys::configSnapshot, snapshot.encode()}, {Keys::configVersion, version}}};
    require(suite->write(entries), "version {} could not be stored", version);
}

/// How long a run with a single look takes: the shortest of several, since the first one is slow.
microseconds runTime(const ThrowawayDevice& device)
{
    auto shortest = microseconds::max();
    for (int run = 0; run < 10; ++run) {
        const auto begin = Clock::now();
        device.startConsole({"wait", "--timeout", "0"})->waitForExit();
        shortest = std::min(shortest, std::chrono::duration_cast<microseconds>(Clock::now() - begin));
    }
    return shortest;
}

} // namespace

void waitTrial(const TrialPrograms& programs, int races, unsigned seed)
{
    fmt::print("seed {}\n", seed);
    std::mt19937 random(seed);
    const ThrowawayDevice device(programs.folder);
    std::filesystem::create_directories(device.suiteFile().parent_path());
    for (const auto& folder :
         {device.path("data"), device.path("data/quorvane-mdm"), device.suiteFile().parent_path()})
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
    StoreFile suite(device.suiteFile());
    // The first look comes early in a run, so changes come before, during and after it.
    const microseconds longest = runTime(device) / 2;
    microseconds latest{0};
    int earlyCount = 0;
    for (int race = 1; race <= races; ++race) {
        // Only the change that follows meets the condition.
        const auto version = std::to_string(race);
        const auto install = [&] { device.replacePolicy(fmt::format(R"({{"device_id": "{}"}})", version)); };
        const auto apply = [&] { storeSnapshot(suite, race); };
        const bool isForVersion = race % 3 == 0;
        const bool isInstalledFirst = race % 3 == 1;
        if (isInstalledFirst)
            install();
        else if (!isForVersion)
            apply();
        const std::string goal = isForVersion ? "--version=" + version : "--applied";
        const auto wait = device.startConsole({"wait", goal, "--timeout", "20"});
        const int most = static_cast<int>(longest.count());
        std::this_thread::sleep_for(microseconds(std::uniform_int_distribution(0, most)(random)));
        if (isForVersion || isInstalledFirst)
            apply();
        else
            install();
        const auto changed = Clock::now();
        const auto exitCode = wait->waitForExit(std::chrono::seconds(30));
        require(exitCode == 0, "race {} of seed {}: {} ended with {}", race, seed, goal,
                exitCode.value_or(-1));
        latest = std::max(latest, std::chrono::duration_cast<microseconds>(Clock::now() - changed));
        // The app does not run, so qvctl says that it waits, if it has to.
        const bool isEarly = std::none_of(wait->lines().begin(), wait->lines().end(), [](const auto& line) {
            return line.find("waiting for it") != std::string::npos;
        });
        earlyCount += isEarly ? 1 : 0;
    }
    fmt::print("{} races: {} changes before the first look, {} after it; at most {} ms from change to exit\n",
               races, earlyCount, races - earlyCount, std::chrono::ceil<milliseconds>(latest).count());
}
