#include "Tests/Trials/DesktopServices.h"
#include "Tests/Trials/Distributor.h"
#include "Tests/Trials/Trials.h"
#include "Tools/Tour/ProcessFigures.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
namespace fs = std::filesystem;

/// The figures that must not grow, measured at one moment.
struct Sample {
    std::int64_t memoryBytes;
    std::int64_t descriptors;
    std::int64_t threads;
    std::int64_t storeBytes;
    /// Size of the largest write-ahead log, which SQLite checkpoints after 1000 pages.
    std::int64_t logBytes;
};

Sample sampleOf(const ThrowawayDevice& device, pid_t process)
{
    Sample sample{privateBytes(process), descriptorCount(process), threadCount(process), 0, 0};
    for (const auto& entry : fs::recursive_directory_iterator(device.path("data"))) {
        if (!entry.is_regular_file())
            continue;
        const auto size = static_cast<std::int64_t>(entry.file_size());
        if (entry.path().native().ends_with("-wal"))
            sample.logBytes = std::max(sample.logBytes, size);
        else
            sample.storeBytes += size;
    }
    return sample;
}

/// Requires that the median of the last third exceeds that of the middle third by at most `slack`.
void requireNoGrowth(const std::vector<Sample>& samples, std::int64_t Sample::*figure, std::string_view name,
                     std::int64_t slack)
{
    const auto median = [&](std::size_t begin, std::size_t end) {
        std::vector<std::int64_t> values;
        for (std::size_t i = begin; i < end; ++i)
            values.push_back(samples[i].*figure);
        std::sort(values.begin(), values.end());
        return values.at(values.size() / 2);
    };
    const std::size_t third = samples.size() / 3;
    const auto before = median(third, 2 * third);
    const auto after = median(2 * third, samples.size());
    fmt::print("{:<12} {:>12} at first, {:>12} in the middle, {:>12} at the end\n", name,
               samples.front().*figure, before, after);
    require(after - before <= slack, "{} are growing", name);
}

/// An application under constant load.
class Soak {
public:
    explicit Soak(const TrialPrograms& programs) : m_testBed(programs), m_distributor(m_testBed)
    {
        m_distributor.installService();
        m_distributor.registerApplication();
    }

    /// Restarts a service of the desktop or moves the clock, each in turn.
    void disturb()
    {
        switch (++m_disturbanceCount % 3) {
        case 0:
            require(m_distributor.restart(), "the session bus cannot start the application");
            break;
        case 1:
            m_desktop.reset();
            m_desktop.emplace(m_disturbanceCount % 2 == 0);
            break;
        default:
            constexpr std::int64_t day = 86'400;
            auto& offset = m_testBed.faults()->clockOffsetSeconds;
            offset = offset == 0 ? day : 0;
        }
    }
    /// Changes the policy and waits until it is applied. Do not store anything else meanwhile: that would
    /// delay the update.
    void change()
    {
        ++m_changeCount;
        std::vector<std::string> apps;
        for (int i = 0; i < 100; ++i)
            apps.push_back(fmt::format("app{}-{}", m_changeCount, i));
        m_testBed.device().replacePolicy(m_testBed.device().policy(apps));
        m_testBed.expectLine("Configuration updated");
    }
    void uploadAndPush()
    {
        constexpr int pushesPerUpload = 5;
        ++m_uploadCount;
        m_distributor.renewEndpoint();
        for (int i = 0; i < pushesPerUpload; ++i) {
            const std::string message = m_distributor.encrypted(
                fmt::format(R"({{"aps": {{"alert": {{"title": "Message {}", "body": "{:*<500}"}}}}}})",
                            ++m_pushCount, ""));
            require(m_distributor.deliver(message) == Distributor::Answer::acknowledged,
                    "a push was not acknowledged");
        }
    }

    [[nodiscard]] Sample sample()
    {
        return sampleOf(m_testBed.device(), m_testBed.application().processId());
    }
    void end()
    {
        m_testBed.end();
        const StoredState state = m_testBed.device().inspect();
        fmt::print("{} uploads, {} pushes, {} changes, {} disturbances, version {}, history of {}\n",
                   m_uploadCount, m_pushCount, m_changeCount, m_disturbanceCount, state.configVersion,
                   state.history.size());
    }

private:
    TestBed m_testBed;
    Distributor m_distributor;
    std::optional<DesktopServices> m_desktop{std::in_place};
    int m_uploadCount = 0;
    int m_pushCount = 0;
    int m_changeCount = 0;
    int m_disturbanceCount = 0;
};

} // namespace

void soakTrial(const TrialPrograms& programs, double minutes)
{
    constexpr int sampleCount = 60;
    const auto length = std::chrono::duration<double, std::ratio<60>>(minutes);
    Soak soak(programs);
    std::vector<Sample> samples;
    const auto begin = steady_clock::now();
    while (steady_clock::now() - begin < length) {
        soak.change();
        soak.disturb();
        for (const auto busyUntil = steady_clock::now() + 1s; steady_clock::now() < busyUntil;)
            soak.uploadAndPush();
        const auto elapsed = steady_clock::now() - begin;
        if (elapsed >= length * static_cast<double>(samples.size() + 1) / sampleCount)
            samples.push_back(soak.sample());
    }
    soak.end();
    require(samples.size() >= 9, "the run is too short for a result");
    constexpr std::int64_t pages = 256 * 1024;
    requireNoGrowth(samples, &Sample::memoryBytes, "bytes", samples.front().memoryBytes / 100 + pages);
    requireNoGrowth(samples, &Sample::descriptors, "descriptors", 1);
    requireNoGrowth(samples, &Sample::threads, "threads", 0);
    requireNoGrowth(samples, &Sample::storeBytes, "store bytes", pages);
    constexpr std::int64_t fullLog = 1000 * 4120 + 1024 * 1024; // 1000 pages plus the last commit.
    for (const Sample& sample : samples)
        require(sample.logBytes <= fullLog, "a write-ahead log has {} bytes", sample.logBytes);
}
