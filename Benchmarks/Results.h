#pragma once

#include "Benchmarks/Figure.h"

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Collects the repetitions of every measurement in one or more whole runs and prints them as one table.
class Results final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override;
    /// Call it before each whole run.
    void beginRun() { ++m_runCount; }

    /// Prints one row for each peer of each measured figure, with the medians of the runs' medians; false if
    /// nothing was measured.
    bool printTable(std::span<const Figure> figures) const;

private:
    /// The amounts per iteration in the figure's quantity, in the order of measurement, for each run.
    using Samples = std::vector<std::vector<double>>;

    [[nodiscard]] const Samples* samples(const std::string& measurement) const;
    /// This figure divided by the smallest of its kind, for one contender; empty if there is no smallest
    /// figure or it was not measured.
    [[nodiscard]] std::string growth(const Figure& figure, std::string_view contender) const;

    std::size_t m_runCount = 0;
    std::map<std::string, Samples> m_samples;
    std::map<std::string, std::string> m_errors;
};
