// Measures the figures that the system has a budget for, each beside its peers and in turns with them, and
// prints one table. Takes the arguments of the benchmark library, such as --benchmark_filter=snapshot.
// Figures are for people to read: the program ends with 0 whatever they are.

#include "Benchmarks/Figures.h"
#include "Benchmarks/Results.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>
#include <unistd.h>

namespace {

std::vector<Figure> allFigures()
{
    std::vector<Figure> figures = logCallFigures();
    for (const auto& more : {snapshotStoreFigures(), notificationHistoryFigures(), requestFigures(),
                             wholeProgramFigures(), screenFigures(), windowlessFigures()})
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

/// The arguments of the command line behind those that hold unless it says otherwise.
class Arguments {
public:
    Arguments(int argc, char** argv) : m_texts(argv, argv + argc)
    {
        m_texts.insert(m_texts.begin() + 1, {"--benchmark_repetitions=9", "--benchmark_min_time=0.05",
                                             "--benchmark_enable_random_interleaving=true"});
        for (std::string& text : m_texts)
            m_pointers.push_back(text.data());
        m_pointers.push_back(nullptr);
    }

    /// False when there is one that the library does not know; it says so.
    bool initializeLibrary()
    {
        int count = static_cast<int>(m_texts.size());
        benchmark::Initialize(&count, m_pointers.data());
        return !benchmark::ReportUnrecognizedArguments(count, m_pointers.data());
    }

    [[nodiscard]] bool isFileNeeded() const
    {
        return std::any_of(m_texts.begin(), m_texts.end(),
                           [](const std::string& text) { return text.starts_with("--benchmark_out="); });
    }

private:
    std::vector<std::string> m_texts;
    std::vector<char*> m_pointers;
};

void measure(const std::vector<Figure>& figures, const Arguments& arguments, Results& results)
{
    // The library begins its file anew with each run, and shuffles all that is in one.
    if (arguments.isFileNeeded()) {
        benchmark::RunSpecifiedBenchmarks(&results);
        return;
    }
    // Figure by figure keeps what is compared close together in time.
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
    const std::vector<Figure> figures = allFigures();
    for (const Figure& figure : figures)
        figure.registerMeasurements();
    Results results;
    try {
        measure(figures, arguments, results);
    } catch (const std::regex_error& error) {
        fmt::print(stderr, "quorvane-bench: the filter is no regular expression: {}\n", error.what());
        return usage;
    }
    if (results.printTable(figures))
        fmt::print("\n{}, {} processors, devices in {}\n", processorModel(),
                   std::thread::hardware_concurrency(), std::filesystem::temp_directory_path().string());
    benchmark::Shutdown();
    return 0;
}
