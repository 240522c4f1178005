#include "Benchmarks/Results.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace {

using Row = std::array<std::string, 9>;

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// One median for each whole run.
std::vector<double> medians(const std::vector<std::vector<double>>& runs)
{
    std::vector<double> medians;
    for (const std::vector<double>& run : runs) {
        if (!run.empty())
            medians.push_back(median(run));
    }
    return medians;
}

std::string durationText(double nanoseconds)
{
    double number = nanoseconds;
    std::array units{"ns", "µs", "ms", "s"};
    std::size_t unit = 0;
    while (number >= 1000 && unit + 1 < units.size()) {
        number /= 1000;
        ++unit;
    }
    const int decimals = number < 10 ? 2 : number < 100 ? 1 : 0;
    return fmt::format("{:.{}f} {}", number, decimals, units.at(unit));
}

std::string amountText(Figure::Quantity quantity, double amount)
{
    constexpr double kibibyte = 1024;
    switch (quantity) {
    case Figure::Quantity::bytes:
        return amount < kibibyte * kibibyte ? fmt::format("{:.1f} KiB", amount / kibibyte)
                                            : fmt::format("{:.1f} MiB", amount / kibibyte / kibibyte);
    case Figure::Quantity::count:
        return fmt::format("{:.0f}", amount);
    case Figure::Quantity::duration:
        break;
    }
    return durationText(amount);
}

/// Compares ours with one peer's. The n-th repetitions of both were measured close together, so a busy moment
/// of the machine affects both: the spread of their ratios shows how reliable the result is.
class Comparison {
public:
    Comparison(const std::vector<std::vector<double>>& ours, const std::vector<std::vector<double>>& peers,
               const Figure::Budget& budget, Figure::Quantity quantity)
        : m_budget(budget), m_quantity(quantity), m_result(median(compared(medians(ours), medians(peers))))
    {
        for (std::size_t run = 0; run < std::min(ours.size(), peers.size()); ++run) {
            const std::vector<double> ofRun = compared(ours[run], peers[run]);
            m_repetitions.insert(m_repetitions.end(), ofRun.begin(), ofRun.end());
        }
    }

    [[nodiscard]] std::string result() const { return text(m_result); }
    [[nodiscard]] std::string budget() const
    {
        const auto limit = isExcess() ? m_budget.excess : m_budget.ratio;
        const std::string target =
            m_budget.targetRatio ? fmt::format(", target {}", text(*m_budget.targetRatio)) : "";
        return limit ? text(*limit) + target : "-";
    }
    [[nodiscard]] std::string spread() const
    {
        const auto [least, greatest] = std::minmax_element(m_repetitions.begin(), m_repetitions.end());
        return fmt::format("{} – {}", text(*least), text(*greatest));
    }
    [[nodiscard]] std::string verdict() const
    {
        const auto limit = isExcess() ? m_budget.excess : m_budget.ratio;
        return !limit ? "" : m_result <= *limit ? "within" : "OVER";
    }

private:
    [[nodiscard]] bool isExcess() const { return m_budget.excess.has_value(); }
    [[nodiscard]] std::vector<double> compared(const std::vector<double>& ours,
                                               const std::vector<double>& peers) const
    {
        std::vector<double> results;
        for (std::size_t index = 0; index < std::min(ours.size(), peers.size()); ++index)
            results.push_back(isExcess() ? ours[index] - peers[index] : ours[index] / peers[index]);
        return results;
    }
    [[nodiscard]] std::string text(double value) const
    {
        if (!isExcess())
            return fmt::format("{:.2f}", value);
        return (value < 0 ? "-" : "+") + amountText(m_quantity, std::abs(value));
    }

    const Figure::Budget& m_budget;
    Figure::Quantity m_quantity;
    double m_result;
    std::vector<double> m_repetitions;
};

/// The width of the UTF-8 text in columns of a terminal.
std::size_t width(std::string_view text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        constexpr unsigned continuationMask = 0xC0;
        constexpr unsigned continuation = 0x80;
        return (static_cast<unsigned char>(byte) & continuationMask) != continuation;
    }));
}

void printAligned(const std::vector<Row>& rows)
{
    std::array<std::size_t, std::tuple_size_v<Row>> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column)
            widths.at(column) = std::max(widths.at(column), width(row.at(column)));
    }
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column)
            line.append(row.at(column)).append(widths.at(column) - width(row.at(column)) + 2, ' ');
        line.erase(line.find_last_not_of(' ') + 1);
        fmt::print("{}\n", line);
    }
}

} // namespace

void Results::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs) {
        const std::string& name = run.run_name.function_name;
        if (run.error_occurred)
            m_errors[name] = run.error_message;
        if (run.error_occurred || run.run_type != Run::RT_Iteration)
            continue;
        Samples& samples = m_samples[name];
        samples.resize(m_runCount);
        samples.back().push_back(run.run_name.time_type.empty() ? run.GetAdjustedCPUTime()
                                                                : run.GetAdjustedRealTime());
    }
}

const Results::Samples* Results::samples(const std::string& measurement) const
{
    const auto found = m_samples.find(measurement);
    return found != m_samples.end() ? &found->second : nullptr;
}

std::string Results::growth(const Figure& figure, std::string_view contender) const
{
    const Samples* base = samples(figure.smallest + "/" + std::string(contender));
    const Samples* own = samples(figure.measurementName(contender));
    if (base == nullptr || own == nullptr)
        return "";
    const double factor = median(medians(*own)) / median(medians(*base));
    return fmt::format("x {:.{}f}", factor, factor < 10 ? 1 : 0);
}

bool Results::printTable(std::span<const Figure> figures) const
{
    std::vector<Row> rows{{"figure", "ours", "peer", "peer's", "ratio", "budget", "spread", "growth", ""}};
    for (const Figure& figure : figures) {
        const Samples* ours = samples(figure.measurementName(Figure::oursName));
        const std::string oursText =
            ours != nullptr ? amountText(figure.quantity, median(medians(*ours))) : "-";
        const std::string ourGrowth = growth(figure, Figure::oursName);
        bool hasPeer = false;
        for (const Figure::Peer& peer : figure.peers) {
            const Samples* peers = samples(figure.measurementName(peer.name));
            if (peers == nullptr)
                continue;
            hasPeer = true;
            Row row{figure.name, oursText, peer.name, amountText(figure.quantity, median(medians(*peers))),
                    "-",         "-",      "-",       ourGrowth,
                    ""};
            if (ours != nullptr) {
                const Comparison comparison(*ours, *peers, peer.budget, figure.quantity);
                row.at(4) = comparison.result();
                row.at(5) = comparison.budget();
                row.at(6) = comparison.spread();
                row.at(8) = comparison.verdict();
            }
            if (const std::string peerGrowth = growth(figure, peer.name); !peerGrowth.empty())
                row.at(7) += ", peer " + peerGrowth;
            rows.push_back(row);
        }
        if (ours != nullptr && !hasPeer)
            rows.push_back({figure.name, oursText, "-", "-", "-", "-", "-", ourGrowth, ""});
    }
    const bool isMeasured = rows.size() > 1;
    if (isMeasured)
        printAligned(rows);
    for (const auto& [measurement, reason] : m_errors)
        fmt::print("not measured: {}: {}\n", measurement, reason);
    return isMeasured;
}
