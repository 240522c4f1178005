#pragma once

#include "Benchmarks/Figure.h"

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Collects the repetitions of every measurement and prints them as one table.
class Results final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override;

    /// Prints one row for each peer of each measured figure; false if nothing was measured.
    bool printTable(std::span<const Figure> figures) const;

private:
    using Samples = std::vector<double>;

    [[nodiscard]] const Samples* samples(const std::string& measurement) const;
    /// This figure divided by the smallest of its kind, for one contender; empty if there is no smallest
    /// figure or it was not measured.
    [[nodiscard]] std::string growth(const Figure& figure, std::string_view contender) const;

    /// The amounts per iteration in the figure's quantity, in the order of measurement.
    std::map<std::string, Samples> m_samples;
    std::map<std::string, std::string> m_errors;
};
