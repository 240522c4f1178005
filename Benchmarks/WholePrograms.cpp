#include "Benchmarks/Figures.h"
#include "Core/ConfigurationManager.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
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
        await("Frame rendered");
    }
    ~RunningDevice()
    {
        m_application->signal(SIGTERM);
        m_application->waitForExit();
    }
    RunningDevice(const RunningDevice&) = delete;
    RunningDevice& operator=(const RunningDevice&) = delete;

    void await(std::string_view line)
    {
        if (!m_application->waitForLine(line))
            throw std::runtime_error(fmt::format("the application never wrote \"{}\"", line));
    }

    /// Runs qvctl and returns its output.
    std::vector<std::string> console(const std::vector<std::string>& arguments, int exitCode = 0) const
    {
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
    return [measure](benchmark::State& state) {
        try {
            RunningDevice device;
            measure(state, device);
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
        }
    };
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
        running.await(fmt::format("Configuration updated - v{},", version));
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

void consoleStatus(benchmark::State& state, const RunningDevice& running)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(running.console({"status"}));
}

void consoleLint(benchmark::State& state, const RunningDevice& running)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(running.console({"config", "lint", running.policyFile()}));
}

void consoleExplain(benchmark::State& state, const RunningDevice& running)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(running.console({"config", "explain", running.policyFile()}));
}

/// Some checks fail, since the device has no session bus.
void consoleDoctor(benchmark::State& state, const RunningDevice& running)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(running.console({"doctor", "--offline"}, 1));
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

Figure consoleFigure(std::string_view command, void (*ours)(benchmark::State&, const RunningDevice&),
                     Figure::Peer peer)
{
    constexpr std::int64_t runsPerRepetition = 5;
    return {fmt::format("qvctl {}, whole program", command),
            onRunningDevice(ours),
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
        consoleFigure("status", consoleStatus, {"sqlite3, one row", oneRow, {.ratio = 2.0}}),
        consoleFigure("config lint", consoleLint, {"sqlite3, members of the file", members}),
        consoleFigure("config explain", consoleExplain, {"sqlite3, members of the file", members}),
        consoleFigure("doctor --offline", consoleDoctor, {"sqlite3, one row", oneRow}),
    };
}
