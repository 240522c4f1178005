#include "Benchmarks/Figure.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <regex>

void Figure::registerMeasurements() const
{
    const auto add = [this](std::string_view contender, const Measurement& measurement) {
        auto* registered = benchmark::RegisterBenchmark(measurementName(contender).c_str(), measurement);
        registered->Unit(benchmark::kNanosecond);
        if (clock == Clock::wall)
            registered->UseRealTime();
        if (clock == Clock::manual)
            registered->UseManualTime();
        if (iterations > 0)
            registered->Iterations(iterations);
        if (repetitions > 0)
            registered->Repetitions(repetitions);
    };
    add(oursName, ours);
    for (const Peer& peer : peers)
        add(peer.name, peer.measurement);
}

std::optional<std::string> Figure::filterExpression(const std::string& filter) const
{
    const bool isExcluding = filter.starts_with('-');
    const std::regex expression(isExcluding ? filter.substr(1) : filter == "all" ? "" : filter);
    std::vector<std::string> wanted;
    for (std::string& candidate : measurementNames()) {
        if (std::regex_search(candidate, expression) != isExcluding)
            wanted.push_back(std::move(candidate));
    }
    // The library appends suffixes such as "/real_time" to names.
    return wanted.empty() ? std::nullopt : std::optional(fmt::format("^({})(/|$)", fmt::join(wanted, "|")));
}

std::vector<std::string> Figure::measurementNames() const
{
    std::vector<std::string> names{measurementName(oursName)};
    for (const Peer& peer : peers)
        names.push_back(measurementName(peer.name));
    return names;
}
