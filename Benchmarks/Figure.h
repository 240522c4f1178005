#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
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

    /// What is measured: nanoseconds, or with the manual clock bytes or a number of events.
    enum class Quantity { duration, bytes, count };

    struct Budget {
        /// How many times the peer's amount ours may come to.
        std::optional<double> ratio = {};
        /// How much ours may come to above the peer's. The ratio means nothing then.
        std::optional<double> excess = {};
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
    Quantity quantity = Quantity::duration;
    /// For measurements that take long; 0 for as many as the command line says.
    int repetitions = 0;
    /// The figure of the same work on the least data, itself included. The table then tells how many times as
    /// much this one comes to.
    std::string smallest = {};

    static constexpr std::string_view oursName = "ours";

    [[nodiscard]] std::string measurementName(std::string_view contender) const
    {
        return std::string(name).append("/").append(contender);
    }

    /// Of the manual clock: what this iteration came to.
    static void setAmount(benchmark::State& state, double amount)
    {
        // The library knows seconds alone, and is asked for nanoseconds at the end.
        constexpr double nano = 1e-9;
        state.SetIterationTime(amount * nano);
    }

    /// Of the manual clock: what this iteration came to, the time that `action` takes.
    template <typename Action>
    static void setTimeOf(benchmark::State& state, Action action)
    {
        const auto begin = std::chrono::steady_clock::now();
        action();
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }

    /// Makes the measurements known to the benchmark library.
    void registerMeasurements() const;
    /// An expression for exactly those measurements of this figure that the filter of the command line lets
    /// through; absent when there are none.
    [[nodiscard]] std::optional<std::string> filterExpression(const std::string& filter) const;

private:
    [[nodiscard]] std::vector<std::string> measurementNames() const;
};
