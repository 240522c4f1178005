#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One figure of the table: a measurement of ours and those of its peers.
///
///     Figure figure{"snapshot load", loadOurs};
///     figure.peers = {{"select and parse", loadBare, {.ratio = 1.5}}};
struct Figure {
    using Measurement = std::function<void(benchmark::State&)>;

    /// What counts: the processor time of the measuring thread, which a busy machine disturbs least; the time
    /// that passes, where a disk or another process is waited for; or what the measurement says itself.
    enum class Clock { processor, wall, manual };

    struct Budget {
        /// How many times the peer's time ours may take.
        std::optional<double> ratio = {};
        /// How much time ours may take above the peer's. The ratio means nothing then.
        std::optional<double> excessNanoseconds = {};
        /// What was hoped for beyond the budget.
        std::optional<double> targetRatio = {};
    };

    struct Peer {
        std::string name;
        Measurement measurement;
        Budget budget = {};
    };

    /// Names hold letters, digits, blanks, commas and hyphens, so that they stand for themselves in a filter.
    std::string name;
    Measurement ours;
    std::vector<Peer> peers = {};
    Clock clock = Clock::processor;
    /// Per repetition; 0 for as many as fill its time.
    std::int64_t iterations = 0;

    static constexpr std::string_view oursName = "ours";

    [[nodiscard]] std::string measurementName(std::string_view contender) const
    {
        return std::string(name).append("/").append(contender);
    }

    /// Makes the measurements known to the benchmark library.
    void registerMeasurements() const;
    /// An expression for exactly those measurements of this figure that the filter of the command line lets
    /// through; absent when there are none.
    [[nodiscard]] std::optional<std::string> filterExpression(const std::string& filter) const;

private:
    [[nodiscard]] std::vector<std::string> measurementNames() const;
};
