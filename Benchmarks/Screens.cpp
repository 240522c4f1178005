#include "Benchmarks/Await.h"
#include "Benchmarks/Figures.h"
#include "Platform/Linux/DevicePaths.h"
#include "Tests/Trials/StoreFile.h"
#include "Tools/Tour/ProcessFigures.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <chrono>
#include <thread>

namespace {

using namespace std::chrono;
using namespace std::chrono_literals;

/// For both programs. Qt logs a line for each presented frame.
const ChildProcess::Environment environment{{"QT_QPA_PLATFORM", "offscreen"},
                                            {"QT_QUICK_BACKEND", "software"},
                                            {"QT_QPA_GENERIC_PLUGINS", ""},
                                            {"QT_FORCE_STDERR_LOGGING", "1"},
                                            {"QT_LOGGING_RULES", "qt.scenegraph.time.renderloop.debug=true"}};

/// The app on a device where it starts with the dashboard.
class Dashboard {
public:
    Dashboard()
    {
        for (const auto& [name, value] : environment)
            m_device.setEnvironment(name, value);
        m_device.replacePolicy(R"({"base_domain": "mdm.example.org", "device_id": "DEV-1"})");
        m_device.startConsole({"privacy", "grant", "notifications"})->waitForExit();
        const Platform::Linux::DevicePaths paths{m_device.path("data/quorvane-mdm"), {}};
        StoreFile(paths.standardDefaults())->set("hasLaunchedBefore", true);
        const auto application = start();
        // Only the dashboard registers for pushes; here that fails, since there is no session bus.
        await(*application, "Remote notification registration failed");
        application->end();
    }
    [[nodiscard]] std::unique_ptr<ChildProcess> start() const { return m_device.startApplication(); }

private:
    ThrowawayDevice m_device{QV_PROGRAMS};
};

struct BareWindow {
    [[nodiscard]] static std::unique_ptr<ChildProcess> start()
    {
        return std::make_unique<ChildProcess>(std::vector<std::string>{QV_BARE_WINDOW}, environment);
    }
};

/// A process that has presented its first frame.
struct Shown {
    pid_t process;
    double firstFrameNanoseconds;
};

double firstFrame(const Shown& shown)
{
    return shown.firstFrameNanoseconds;
}

double idleMemory(const Shown& shown)
{
    std::this_thread::sleep_for(2s);
    return static_cast<double>(residentBytes(shown.process));
}

double idleSwitches(const Shown& shown)
{
    std::this_thread::sleep_for(2s);
    const auto before = sleepCount(shown.process);
    std::this_thread::sleep_for(5s);
    return static_cast<double>(sleepCount(shown.process) - before);
}

template <typename Program>
Figure::Measurement measured(double (*amountOf)(const Shown&))
{
    return Figure::catching([amountOf](benchmark::State& state) {
        const Program program;
        for (auto _ : state) {
            const auto begin = steady_clock::now();
            const auto process = program.start();
            await(*process, "Frame rendered");
            const duration<double, std::nano> firstFrame = steady_clock::now() - begin;
            Figure::setAmount(state, amountOf({process->processId(), firstFrame.count()}));
            process->end();
        }
    });
}

Figure dashboardFigure(std::string name, double (*amountOf)(const Shown&), Figure::Quantity quantity,
                       Figure::Budget budget, int repetitions = 0)
{
    return {std::move(name),
            measured<Dashboard>(amountOf),
            {{"bare window", measured<BareWindow>(amountOf), budget}},
            Figure::Clock::manual,
            1,
            quantity,
            repetitions};
}

} // namespace

std::vector<Figure> screenFigures()
{
    using Quantity = Figure::Quantity;
    return {
        dashboardFigure("dashboard, first frame", firstFrame, Quantity::duration, {.ratio = 1.6}),
        dashboardFigure("dashboard, memory when idle", idleMemory, Quantity::bytes, {.ratio = 1.3}),
        dashboardFigure("dashboard, wake-ups in 5 s", idleSwitches, Quantity::count, {.excess = 0}, 3),
    };
}
