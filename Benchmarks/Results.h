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

    /// One row for each peer of each figure that was measured; false when nothing was.
    bool printTable(std::span<const Figure> figures) const;

private:
    using Samples = std::vector<double>;

    [[nodiscard]] const Samples* samples(const std::string& measurement) const;
    /// How many times the contender's amount in the smallest figure of its kind this one is; empty where
    /// there is none or it was not measured.
    [[nodiscard]] std::string growth(const Figure& figure, std::string_view contender) const;

    /// The amount per iteration in the figure's quantity, in the order in which they were measured.
    std::map<std::string, Samples> m_samples;
    std::map<std::string, std::string> m_errors;
};
