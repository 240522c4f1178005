// Measures the figures that have a budget, alternating with their peers, and prints one table. --runs=N
// measures everything N times and prints the medians. Accepts the arguments of the benchmark library, such
// as --benchmark_filter=snapshot. Exits with 0 even if a figure exceeds its budget.

#include "Benchmarks/Figures.h"
#include "Benchmarks/Results.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string_view>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

namespace {

std::vector<Figure> allFigures()
{
    std::vector<Figure> figures = logCallFigures();
    for (const auto& more : {snapshotStoreFigures(), notificationHistoryFigures(), requestFigures(),
                             pushFigures(), wholeProgramFigures(), screenFigures(), windowlessFigures()})
        figures.insert(figures.end(), more.begin(), more.end());
    return figures;
}

std::string processorModel()
{
    std::ifstream information("/proc/cpuinfo");
    for (std::string line; std::getline(information, line);) {
        if (const auto colon = line.find(": "); line.starts_with("model name") && colon != std::string::npos)
            return line.substr(colon + 2);
    }
    return "unknown processor";
}

/// "Linux 6.1.0-18-amd64".
std::string kernel()
{
    utsname name{};
    ::uname(&name);
    return fmt::format("{} {}", name.sysname, name.release);
}

/// The load average of the last minute. Other programs make figures in wall time worthless.
double load()
{
    double average = 0;
    ::getloadavg(&average, 1);
    return average;
}

/// Our defaults followed by the arguments of the command line, which override them.
class Arguments {
public:
    Arguments(int argc, char** argv) : m_texts(argv, argv + argc)
    {
        takeRunCount();
        m_texts.insert(m_texts.begin() + 1, {"--benchmark_repetitions=9", "--benchmark_min_time=0.05",
                                             "--benchmark_enable_random_interleaving=true"});
        for (std::string& text : m_texts)
            m_pointers.push_back(text.data());
        m_pointers.push_back(nullptr);
    }

    /// False if the library does not know an argument; it has printed an error then.
    bool initializeLibrary()
    {
        int count = static_cast<int>(m_texts.size());
        benchmark::Initialize(&count, m_pointers.data());
        return !benchmark::ReportUnrecognizedArguments(count, m_pointers.data());
    }

    /// How often to measure everything; 0 if the argument is not a number above 0.
    [[nodiscard]] int runCount() const { return m_runCount; }
    [[nodiscard]] bool isFileNeeded() const
    {
        return std::any_of(m_texts.begin(), m_texts.end(),
                           [](const std::string& text) { return text.starts_with("--benchmark_out="); });
    }

private:
    void takeRunCount()
    {
        constexpr std::string_view option = "--runs=";
        for (const std::string& text : m_texts) {
            if (text.starts_with(option))
                m_runCount = std::max(std::atoi(text.c_str() + option.size()), 0);
        }
        std::erase_if(m_texts, [&](const std::string& text) { return text.starts_with(option); });
    }

    int m_runCount = 1;
    std::vector<std::string> m_texts;
    std::vector<char*> m_pointers;
};

void measure(const std::vector<Figure>& figures, const Arguments& arguments, Results& results)
{
    results.beginRun();
    // The library overwrites its output file with each run, and shuffles the measurements of one run.
    if (arguments.isFileNeeded()) {
        benchmark::RunSpecifiedBenchmarks(&results);
        return;
    }
    // Figure by figure, so that a figure and its peers are measured close together.
    const std::string filter = benchmark::GetBenchmarkFilter();
    for (const Figure& figure : figures) {
        const auto filterExpression = figure.filterExpression(filter);
        if (!filterExpression)
            continue;
        if (::isatty(STDERR_FILENO) == 1)
            fmt::print(stderr, "measuring {}\n", figure.name);
        benchmark::RunSpecifiedBenchmarks(&results, *filterExpression);
    }
}

} // namespace

int main(int argc, char** argv)
{
    constexpr int usage = 64;
    Arguments arguments(argc, argv);
    if (!arguments.initializeLibrary())
        return usage;
    if (arguments.runCount() == 0) {
        fmt::print(stderr, "quorvane-bench: --runs takes a number above 0\n");
        return usage;
    }
    const std::vector<Figure> figures = allFigures();
    for (const Figure& figure : figures)
        figure.registerMeasurements();
    Results results;
    const double loadAtStart = load();
    try {
        for (int run = 0; run < arguments.runCount(); ++run)
            measure(figures, arguments, results);
    } catch (const std::regex_error& error) {
        fmt::print(stderr, "quorvane-bench: the filter is not a regular expression: {}\n", error.what());
        return usage;
    }
    if (results.printTable(figures))
        fmt::print("\n{}, {} processors, {}, devices in {}\n"
                   "Medians of {} whole run{}, load average {:.1f} before and {:.1f} after\n",
                   processorModel(), std::thread::hardware_concurrency(), kernel(),
                   std::filesystem::temp_directory_path().string(), arguments.runCount(),
                   arguments.runCount() == 1 ? "" : "s", loadAtStart, load());
    benchmark::Shutdown();
    return 0;
}
