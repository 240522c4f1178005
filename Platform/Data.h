#pragma once

#include <cstddef>
#include <vector>

namespace Platform {

/// Raw bytes.
using Data = std::vector<std::byte>;

} // namespace Platform
