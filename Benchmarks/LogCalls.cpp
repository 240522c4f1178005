#include "Benchmarks/Figures.h"
#include "Benchmarks/NullSink.h"

#include <fmt/format.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>

#include <array>
#include <tuple>

namespace {

struct OurLogger {
    Core::Logger logger{std::make_unique<NullSink>(), "com.quorvane.mdm"};
};

struct PeerLogger {
    spdlog::logger logger{"com.quorvane.mdm", std::make_shared<spdlog::sinks::null_sink_mt>()};
};

/// For calls that are no slower than the loop around them.
template <typename Call>
void measureInBatches(benchmark::State& state, Call call)
{
    constexpr int batchSize = 16;
    while (state.KeepRunningBatch(batchSize)) {
#pragma GCC unroll batchSize
        for (int repeat = 0; repeat < batchSize; ++repeat) {
            call();
            // Makes the compiler read the switches again.
            benchmark::ClobberMemory();
        }
    }
}

void filteredOurs(benchmark::State& state)
{
    OurLogger ours;
    Core::LoggingConfig::isDebugLoggingEnabled = false;
    measureInBatches(state, [&] { ours.logger.debug("Configuration change detected", "filteredOurs()"); });
}

void filteredPeers(benchmark::State& state)
{
    PeerLogger peer;
    peer.logger.set_level(spdlog::level::info);
    measureInBatches(state, [&] { peer.logger.debug("Configuration change detected"); });
}

/// The part of a backend's response that a log line contains.
struct Response {
    int statusCode = 503;
    std::string body = "unavailable";
};

void emittedOurs(benchmark::State& state)
{
    OurLogger ours;
    Response response;
    for (auto _ : state) {
        benchmark::DoNotOptimize(response);
        ours.logger.info("Backend refused the request", "emittedOurs()",
                         {.category = Core::LogCategory::network,
                          .context = {{"statusCode", std::to_string(response.statusCode)},
                                      {"responseBody", response.body}}});
    }
}

void emittedPeers(benchmark::State& state)
{
    PeerLogger peer;
    Response response;
    for (auto _ : state) {
        benchmark::DoNotOptimize(response);
        peer.logger.info("Backend refused the request | context={{responseBody={}, statusCode={}}}",
                         response.body, response.statusCode);
    }
}

std::string pairKey(std::size_t pair)
{
    return fmt::format("key{:02}", pair);
}

template <std::size_t pairCount>
void emittedWithPairs(benchmark::State& state)
{
    OurLogger ours;
    Core::LogContext context;
    for (std::size_t pair = 0; pair < pairCount; ++pair)
        context.metadata.emplace(pairKey(pair), fmt::format("value{:02}", pair));
    for (auto _ : state) {
        benchmark::DoNotOptimize(context);
        ours.logger.info("Backend refused the request", "emittedWithPairs()", Core::LogCategory::general,
                         context);
    }
}

/// Produces the same text.
template <std::size_t pairCount>
void emittedWithPairsPeers(benchmark::State& state)
{
    PeerLogger peer;
    std::string pattern = "Backend refused the request";
    std::array<std::string, pairCount> values;
    for (std::size_t pair = 0; pair < pairCount; ++pair) {
        pattern += fmt::format("{}{}={{}}", pair == 0 ? " | context={{" : ", ", pairKey(pair));
        values.at(pair) = fmt::format("value{:02}", pair);
    }
    if (pairCount > 0)
        pattern += "}}";
    for (auto _ : state) {
        benchmark::DoNotOptimize(values);
        std::apply([&](const auto&... value) { peer.logger.info(fmt::runtime(pattern), value...); }, values);
    }
}

template <std::size_t pairCount>
Figure pairsFigure()
{
    Figure figure{fmt::format("log line, {} pairs", pairCount),
                  emittedWithPairs<pairCount>,
                  {{"spdlog, null sink", emittedWithPairsPeers<pairCount>}}};
    figure.smallest = "log line, 0 pairs";
    return figure;
}

} // namespace

std::vector<Figure> logCallFigures()
{
    return {
        {"log call, filtered",
         filteredOurs,
         {{"spdlog, level disabled", filteredPeers, {.ratio = 1.0, .targetRatio = 0.1}}}},
        {"log call, emitted", emittedOurs, {{"spdlog, null sink", emittedPeers, {.ratio = 1.0}}}},
        pairsFigure<0>(),
        pairsFigure<2>(),
        pairsFigure<16>(),
    };
}
