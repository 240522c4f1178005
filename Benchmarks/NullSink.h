#pragma once

#include "Core/Logger.h"

#include <benchmark/benchmark.h>

/// Discards every line.
class NullSink final : public Core::LogSink {
public:
    void write(std::string_view line, Core::LogLevel, Core::LogPrivacy, const Platform::LogHandle&) override
    {
        benchmark::DoNotOptimize(line.data());
    }
};
