#include "Tests/Trials/DesktopServices.h"
#include "Tests/Trials/Distributor.h"
#include "Tools/Tour/ProcessFigures.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
namespace fs = std::filesystem;

/// Figures that must not grow, measured at one moment, by name.
using Sample = std::map<std::string_view, std::int64_t>;

Sample sampleOf(TestBed& testBed)
{
    const pid_t process = testBed.application().processId();
    Sample sample{{"bytes", privateBytes(process)},
                  {"descriptors", descriptorCount(process)},
                  {"threads", threadCount(process)}};
    for (const auto& entry : fs::recursive_directory_iterator(testBed.device().path("data"))) {
        if (!entry.is_regular_file())
            continue;
        const auto size = static_cast<std::int64_t>(entry.file_size());
        if (entry.path().native().ends_with("-wal"))
            sample["log bytes"] = std::max(sample["log bytes"], size);
        else
            sample["store bytes"] += size;
    }
    return sample;
}

/// Requires that the median of the last third exceeds that of the middle third by at most `slack`.
void requireNoGrowth(const std::vector<Sample>& samples, std::string_view name, std::int64_t slack)
{
    const auto median = [&](std::size_t begin, std::size_t end) {
        std::vector<std::int64_t> values;
        for (std::size_t i = begin; i < end; ++i)
            values.push_back(samples[i].at(name));
        std::sort(values.begin(), values.end());
        return values.at(values.size() / 2);
    };
    const std::size_t third = samples.size() / 3;
    const auto before = median(third, 2 * third);
    const auto after = median(2 * third, samples.size());
    fmt::print("{:<12} {:>12} at first, {:>12} in the middle, {:>12} at the end\n", name,
               samples.front().at(name), before, after);
    require(after - before <= slack, "{} are growing", name);
}

/// Changes the policy and waits until it is applied. Do not store anything else meanwhile: that would delay
/// the update.
void change(TestBed& testBed, int number)
{
    std::vector<std::string> apps;
    for (int i = 0; i < 100; ++i)
        apps.push_back(fmt::format("app{}-{}", number, i));
    testBed.device().replacePolicy(testBed.device().policy(apps));
    testBed.expectLine("Configuration updated");
}

void push(Distributor& distributor, int number)
{
    const std::string message = distributor.encrypted(
        fmt::format(R"({{"aps": {{"alert": {{"title": "Message {}", "body": "{:*<500}"}}}}}})", number, ""));
    require(distributor.deliver(message) == Distributor::Answer::acknowledged, "a push was not acknowledged");
}

} // namespace

void soakTrial(const TrialPrograms& programs, double minutes)
{
    constexpr int sampleCount = 60;
    constexpr int pushesPerUpload = 5;
    constexpr std::int64_t day = 86'400;
    const auto length = std::chrono::duration<double, std::ratio<60>>(minutes);
    TestBed testBed(programs);
    Distributor distributor(testBed);
    distributor.setActivatable(true);
    distributor.registerApplication();
    std::optional<DesktopServices> desktop(std::in_place);
    std::vector<Sample> samples;
    int changeCount = 0;
    int pushCount = 0;
    const auto begin = steady_clock::now();
    while (steady_clock::now() - begin < length) {
        change(testBed, ++changeCount);
        // Restarts a service of the desktop or moves the clock, each in turn.
        if (changeCount % 3 == 0) {
            distributor.restart();
        } else if (changeCount % 3 == 1) {
            desktop.reset();
            desktop.emplace(changeCount % 2 == 0);
        } else {
            auto& offset = testBed.faults()->clockOffsetSeconds;
            offset = offset == 0 ? day : 0;
        }
        for (const auto busyUntil = steady_clock::now() + 1s; steady_clock::now() < busyUntil;) {
            distributor.renewEndpoint();
            for (int i = 0; i < pushesPerUpload; ++i)
                push(distributor, ++pushCount);
        }
        const auto elapsed = steady_clock::now() - begin;
        if (elapsed >= length * static_cast<double>(samples.size() + 1) / sampleCount)
            samples.push_back(sampleOf(testBed));
    }
    testBed.end();
    fmt::print("{} uploads, {} pushes, {} changes, each with a disturbance\n", pushCount / pushesPerUpload,
               pushCount, changeCount);
    require(samples.size() >= 9, "the run is too short for a result");
    constexpr std::int64_t pages = 256 * 1024;
    requireNoGrowth(samples, "bytes", samples.front().at("bytes") / 100 + pages);
    requireNoGrowth(samples, "descriptors", 1);
    requireNoGrowth(samples, "threads", 0);
    requireNoGrowth(samples, "store bytes", pages);
    // The largest write-ahead log, which SQLite checkpoints after 1000 pages.
    constexpr std::int64_t fullLog = 1000 * 4120 + 1024 * 1024; // 1000 pages plus the last commit.
    for (const Sample& sample : samples)
        require(sample.at("log bytes") <= fullLog, "a write-ahead log has {} bytes", sample.at("log bytes"));
}
