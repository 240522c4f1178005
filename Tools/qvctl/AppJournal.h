#pragma once

#include "Platform/Date.h"

#include <cstddef>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Qvctl {

/// One line that the application wrote to the journal.
struct JournalLine {
    Platform::Date time;
    /// "notifications", "network", …
    std::string category;
    /// "info", "error", …
    std::string level;
    /// "<private>" unless the line is public or was written to be seen.
    std::string text;
};

/// The newest lines of this user's application, newest first; with `process` only those of that process since
/// the system started. Throws `StepError` when there is no journal, or none that this user may read.
std::vector<JournalLine> readJournal(const std::string& identifier, std::optional<pid_t> process,
                                     std::size_t maximumCount);

} // namespace Qvctl
