#pragma once

#include "Platform/Date.h"

namespace Platform {

/// The wall clock, and the only source of the current time.
///
/// Threads: any.
class Clock {
public:
    virtual ~Clock() = default;
    [[nodiscard]] virtual Date now() const = 0;
};

} // namespace Platform
