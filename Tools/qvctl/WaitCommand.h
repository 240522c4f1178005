#pragma once

#include "Tools/qvctl/Commands.h"

#include <string>
#include <string_view>

namespace Qvctl {

/// How a wait ended.
struct WaitEnd {
    ExitCode exitCode = success;
    /// Why the condition is not met, as a clause; empty if it is.
    std::string reason = {};
};

/// Waits until the app has applied the policy file that was just installed with this content. Ends the
/// process if a signal interrupts it.
WaitEnd waitUntilApplied(const Options& options, std::string_view content, const WaitLimit& timeout);

} // namespace Qvctl
