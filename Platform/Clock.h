#pragma once

#include "Platform/Date.h"

namespace Platform {

/// The wall clock. The only source of the present time; may be read from any thread.
class Clock {
public:
    virtual ~Clock() = default;
    [[nodiscard]] virtual Date now() const = 0;
};

} // namespace Platform
