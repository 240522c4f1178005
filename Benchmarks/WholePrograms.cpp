#include "Benchmarks/Await.h"
#include "Benchmarks/Figures.h"
#include "Core/ConfigurationManager.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace {

using std::chrono::duration;
using std::chrono::steady_clock;

std::string configuration(std::string_view deviceId)
{
    return fmt::format(R"({{"base_domain": "mdm.example.org", "api_key": "sample-key", "device_id": "{}",
        "OrganizationId": 4711,
        "AllowedAppsBundleIdsForSSOExtension": "com.example.mail, com.example.files"}})",
                       deviceId);
}

/// A device with the running app, which has applied version 1 of its configuration.
class RunningDevice {
public:
    RunningDevice()
    {
        m_device.replacePolicy(configuration("DEV-1"));
        // A change during the creation of the first screen would be delayed.
        m_device.setEnvironment("QT_FORCE_STDERR_LOGGING", "1");
        m_device.setEnvironment("QT_LOGGING_RULES", "qt.scenegraph.time.renderloop.debug=true");
        m_application = m_device.startApplication();
        await(*m_application, "Frame rendered");
    }
    ~RunningDevice() { m_application->end(); }
    RunningDevice(const RunningDevice&) = delete;
    RunningDevice& operator=(const RunningDevice&) = delete;

    /// Runs qvctl, with the policy file for the argument "FILE", and returns its output.
    std::vector<std::string> console(std::vector<std::string> arguments, int exitCode) const
    {
        std::replace(arguments.begin(), arguments.end(), std::string("FILE"), policyFile());
        return finished(*m_device.startConsole(arguments), exitCode);
    }
    /// Runs SQLite's shell and returns its output.
    static std::vector<std::string> databaseShell(const std::string& database, const std::string& statement)
    {
        ChildProcess shell({"sqlite3", database, statement}, {});
        return finished(shell, 0);
    }
    std::vector<std::string> selectConfigVersion() const
    {
        return databaseShell(m_device.suiteFile(), "select value from defaults where key='ConfigVersion'");
    }
    [[nodiscard]] std::string policyFile() const { return m_device.policyFile(); }
    [[nodiscard]] const ThrowawayDevice& device() const { return m_device; }
    [[nodiscard]] ChildProcess& application() { return *m_application; }

private:
    static std::vector<std::string> finished(ChildProcess& process, int exitCode)
    {
        if (process.waitForExit() != exitCode)
            throw std::runtime_error("a program failed: " +
                                     (process.lines().empty() ? "" : process.lines().back()));
        return process.lines();
    }

    ThrowawayDevice m_device{QV_PROGRAMS};
    std::unique_ptr<ChildProcess> m_application;
};

template <typename Measure>
Figure::Measurement onRunningDevice(Measure measure)
{
    return Figure::catching([measure](benchmark::State& state) {
        RunningDevice device;
        measure(state, device);
    });
}

/// Measures from the rename of a policy file until the app has committed its snapshot, by the line that it
/// logs after the commit.
void policyToSnapshot(benchmark::State& state, RunningDevice& running)
{
    const ThrowawayDevice& device = running.device();
    int version = 1;
    for (auto _ : state) {
        ++version;
        // Written in another folder first: in the watched folder, only the rename happens.
        device.write(device.path("next.json"), configuration(fmt::format("DEV-{}", version)));
        const auto begin = steady_clock::now();
        std::filesystem::rename(device.path("next.json"), device.policyFile());
        await(running.application(), fmt::format("Configuration updated - v{},", version));
        state.SetIterationTime(duration<double>(steady_clock::now() - begin).count());
        if (running.selectConfigVersion() != std::vector<std::string>{std::to_string(version)})
            throw std::runtime_error("the suite does not contain the announced version");
    }
}

/// Not measured: the interval without changes before one is applied.
void debounceInterval(benchmark::State& state)
{
    for (auto _ : state)
        state.SetIterationTime(duration<double>(Core::ConfigurationManager::debounceInterval).count());
}

void selectRow(benchmark::State& state, const RunningDevice& running)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(running.selectConfigVersion());
}

/// SQLite's shell parses the policy file and prints its members.
void selectMembers(benchmark::State& state, const RunningDevice& running)
{
    const std::string statement =
        fmt::format("select key, value from json_each(readfile('{}'))", running.policyFile());
    for (auto _ : state)
        benchmark::DoNotOptimize(RunningDevice::databaseShell(":memory:", statement));
}

/// `arguments` as for `RunningDevice::console`.
Figure consoleFigure(std::string_view command, const std::vector<std::string>& arguments, Figure::Peer peer,
                     int exitCode = 0)
{
    constexpr std::int64_t runsPerRepetition = 5;
    return {fmt::format("qvctl {}, whole program", command),
            onRunningDevice([=](benchmark::State& state, const RunningDevice& running) {
                for (auto _ : state)
                    benchmark::DoNotOptimize(running.console(arguments, exitCode));
            }),
            {std::move(peer)},
            Figure::Clock::wall,
            runsPerRepetition};
}

} // namespace

std::vector<Figure> wholeProgramFigures()
{
    constexpr double allowanceNanoseconds = 10e6;
    const Figure::Measurement oneRow = onRunningDevice(selectRow);
    const Figure::Measurement members = onRunningDevice(selectMembers);
    return {
        {"policy file to snapshot, whole program",
         onRunningDevice(policyToSnapshot),
         {{"debounce interval", debounceInterval, {.excess = allowanceNanoseconds}}},
         Figure::Clock::manual,
         1},
        consoleFigure("status", {"status"}, {"sqlite3, one row", oneRow, {.ratio = 2.0}}),
        consoleFigure("config lint", {"config", "lint", "FILE"}, {"sqlite3, members of the file", members}),
        consoleFigure("config explain", {"config", "explain", "FILE"},
                      {"sqlite3, members of the file", members}),
        // Some checks fail, since the device has no session bus.
        consoleFigure("doctor --offline", {"doctor", "--offline"}, {"sqlite3, one row", oneRow}, 1),
    };
}
