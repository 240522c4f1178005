#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One figure of the table: our measurement and those of its peers.
///
///     Figure figure{"snapshot load", loadOurs};
///     figure.peers = {{"select and parse", loadBare, {.ratio = 1.5}}};
struct Figure {
    using Measurement = std::function<void(benchmark::State&)>;

    /// `processor` is the processor time of the measuring thread, which a busy machine disturbs least. `wall`
    /// is for work that waits for a disk or another process. With `manual`, the measurement sets the amount.
    enum class Clock { processor, wall, manual };

    /// Nanoseconds; or bytes or a number of events, with the manual clock.
    enum class Quantity { duration, bytes, count };

    struct Budget {
        /// The maximum ratio of our value to the peer's.
        std::optional<double> ratio = {};
        /// The maximum difference between our value and the peer's. Replaces `ratio`.
        std::optional<double> excess = {};
        /// A ratio to aim for, below the budget.
        std::optional<double> targetRatio = {};
    };

    struct Peer {
        std::string name;
        Measurement measurement;
        Budget budget = {};
    };

    /// Letters, digits, blanks, commas and hyphens only: the name is part of a regular expression.
    std::string name;
    Measurement ours;
    std::vector<Peer> peers = {};
    Clock clock = Clock::processor;
    /// Per repetition; 0 for as many as fit into its time.
    std::int64_t iterations = 0;
    Quantity quantity = Quantity::duration;
    /// For long measurements; 0 for the number on the command line.
    int repetitions = 0;
    /// The figure that does the same work on the least data, possibly this one. The table shows how many
    /// times larger this one is.
    std::string smallest = {};

    static constexpr std::string_view oursName = "ours";

    [[nodiscard]] std::string measurementName(std::string_view contender) const
    {
        return std::string(name).append("/").append(contender);
    }

    /// Sets the amount of this iteration, with the manual clock.
    static void setAmount(benchmark::State& state, double amount)
    {
        // The library takes seconds, and reports nanoseconds at the end.
        constexpr double nano = 1e-9;
        state.SetIterationTime(amount * nano);
    }

    /// Runs `action` and sets its duration as the amount of this iteration, with the manual clock.
    template <typename Action>
    static void setTimeOf(benchmark::State& state, Action action)
    {
        const auto begin = std::chrono::steady_clock::now();
        action();
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }

    /// Wraps a measurement so that an exception makes the figure fail with its message.
    template <typename Measure>
    static Measurement catching(Measure measure)
    {
        return [measure](benchmark::State& state) {
            try {
                measure(state);
            } catch (const std::exception& error) {
                state.SkipWithError(error.what());
            }
        };
    }

    /// Registers the measurements with the benchmark library.
    void registerMeasurements() const;
    /// A regular expression for the measurements of this figure that match the filter of the command line;
    /// absent if no measurement matches.
    [[nodiscard]] std::optional<std::string> filterExpression(const std::string& filter) const;

private:
    [[nodiscard]] std::vector<std::string> measurementNames() const;
};
