#pragma once

#include <string_view>

namespace Platform {

/// Writes `sentence` to standard error and aborts. For misuse of our interfaces, or if continuing could
/// damage data; never for bad input.
[[noreturn]] void fatalError(std::string_view sentence) noexcept;

} // namespace Platform
