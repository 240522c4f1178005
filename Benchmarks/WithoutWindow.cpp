#include "Benchmarks/Await.h"
#include "Benchmarks/Figures.h"
#include "Tools/Tour/ProcessFigures.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;

/// For both programs.
const ChildProcess::Environment environment{{"QT_QPA_PLATFORM", "offscreen"}, {"QT_QPA_GENERIC_PLUGINS", ""}};

std::string policy(std::size_t appCount)
{
    std::string apps;
    for (std::size_t app = 0; app < appCount; ++app)
        fmt::format_to(std::back_inserter(apps), "{}com.example.app{}", app > 0 ? "," : "", app);
    return fmt::format(R"({{"base_domain": "mdm.example.org", "device_id": "DEV-1",
        "AllowedAppsBundleIdsForSSOExtension": "{}"}})",
                       apps);
}

std::string appliedLine(int version, std::size_t appCount)
{
    return fmt::format("Configuration updated - v{}, apps: {}", version, appCount);
}

/// The app as a push starts it, with a policy of a given number of apps.
class Application {
public:
    explicit Application(std::size_t appCount)
        : readyLine(appliedLine(1, appCount)), m_policy(policy(appCount))
    {
        for (const auto& [name, value] : environment)
            m_device.setEnvironment(name, value);
    }
    [[nodiscard]] std::unique_ptr<ChildProcess> start() const
    {
        // Each start applies the policy again.
        std::filesystem::remove_all(m_device.path("data"));
        m_device.replacePolicy(m_policy);
        return m_device.startApplication({"--log-stderr", "--background"});
    }
    void replacePolicy(std::size_t appCount) const { m_device.replacePolicy(policy(appCount)); }

    const std::string readyLine;

private:
    ThrowawayDevice m_device{QV_PROGRAMS};
    const std::string m_policy;
};

/// The app once its list of a given number of apps was replaced by a list of 1.
class ShrunkApplication {
public:
    explicit ShrunkApplication(std::size_t appCount) : m_application(appCount) {}
    [[nodiscard]] std::unique_ptr<ChildProcess> start() const
    {
        auto process = m_application.start();
        await(*process, m_application.readyLine);
        m_application.replacePolicy(1);
        return process;
    }

    const std::string readyLine = appliedLine(2, 1);

private:
    const Application m_application;
};

class BareLoop {
public:
    explicit BareLoop(std::size_t /*appCount*/) {}
    [[nodiscard]] static std::unique_ptr<ChildProcess> start()
    {
        return std::make_unique<ChildProcess>(std::vector<std::string>{QV_BARE_LOOP}, environment);
    }
    const std::string readyLine = "waiting";
};

/// The amount for a process that has finished its start.
using Amount = double (*)(pid_t);

double peakBytes(pid_t process)
{
    return static_cast<double>(peakResidentBytes(process));
}

void letSettle()
{
    std::this_thread::sleep_for(1s);
}

double bytesAtRest(pid_t process)
{
    letSettle();
    return static_cast<double>(residentBytes(process));
}

/// The increase within five seconds.
template <typename Read>
double growthAtRest(Read read)
{
    letSettle();
    const auto before = read();
    std::this_thread::sleep_for(5s);
    return static_cast<double>(read() - before);
}

double wakeUps(pid_t process)
{
    return growthAtRest([=] { return sleepCount(process); });
}

double processorNanoseconds(pid_t process)
{
    return growthAtRest([=] { return processorTime(process).count(); });
}

template <typename Program>
Figure::Measurement measured(std::size_t appCount, Amount amount)
{
    return Figure::catching([=](benchmark::State& state) {
        const Program program(appCount);
        for (auto _ : state) {
            const auto process = program.start();
            await(*process, program.readyLine);
            Figure::setAmount(state, amount(process->processId()));
            process->end();
        }
    });
}

constexpr int repetitions = 3;

Figure figure(std::string name, std::size_t appCount, Amount amount, Figure::Quantity quantity,
              Figure::Budget budget = {})
{
    return {std::move(name),
            measured<Application>(appCount, amount),
            {{"bare event loop", measured<BareLoop>(appCount, amount), budget}},
            Figure::Clock::manual,
            1,
            quantity,
            repetitions};
}

} // namespace

std::vector<Figure> windowlessFigures()
{
    using Quantity = Figure::Quantity;
    std::vector<Figure> figures{
        figure("without a window, wake-ups in 5 s", 1, wakeUps, Quantity::count, {.excess = 0}),
        figure("without a window, processor time in 5 s", 1, processorNanoseconds, Quantity::duration,
               {.excess = 0})};
    for (const std::size_t appCount : {1, 1'000, 100'000}) {
        const auto add = [&](std::string_view which, Amount amount) {
            figures.push_back(
                figure(fmt::format("{}, list of {}", which, appCount), appCount, amount, Quantity::bytes));
            figures.back().smallest = fmt::format("{}, list of 1", which);
        };
        add("memory without a window, peak", peakBytes);
        add("memory without a window, idle", bytesAtRest);
    }
    figures.push_back({"memory after a list of 100000 gave way to 1",
                       measured<ShrunkApplication>(100'000, bytesAtRest),
                       {{"list of 1 all along", measured<Application>(1, bytesAtRest), {.ratio = 1.2}}},
                       Figure::Clock::manual,
                       1,
                       Quantity::bytes,
                       repetitions});
    return figures;
}
