#pragma once

#include <string_view>

namespace Platform {

/// Ends the process after writing `sentence` to standard error: for misuse of our own interfaces and for
/// states from which going on would damage data. Never for bad input.
[[noreturn]] void fatalError(std::string_view sentence) noexcept;

} // namespace Platform
