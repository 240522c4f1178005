#pragma once

#include "Platform/Clock.h"

namespace Platform {

class SystemClock final : public Clock {
public:
    [[nodiscard]] Date now() const override { return Date::fromSystemTime(std::chrono::system_clock::now()); }
};

} // namespace Platform
