#pragma once

#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/UserAccounts.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Qvctl {

/// What a command did in the process of one user.
struct UserOutcome {
    /// Absent if the process did not finish; `failure` is the reason, as a predicate: "did not finish …".
    std::optional<int> exitCode = {};
    std::string failure = {};
    /// Standard output and standard error.
    std::string output = {};
    std::string diagnostics = {};
};

/// Runs `command` once for each account, in a process of its own with the rights and the home of that user,
/// because a user controls the files below the own home: links, pipes and locks there have no more effect
/// than on a command that the user runs. The process gets none of the caller's environment, terminal, open
/// files and current folder, cannot write to files and cannot be traced by the user. A few processes run at a
/// time.
///
/// `report` is called in the order of `accounts`. A process that takes longer than `timeLimit` or prints more
/// than 64 MiB is killed.
///
/// Threads: forks, so call it while the process has only one thread. Errors: throws `OutputError`; other
/// problems are part of the outcome.
void runForUsers(const std::vector<UserAccount>& accounts, std::chrono::milliseconds timeLimit,
                 const std::function<ExitCode(const UserAccount&)>& command,
                 const std::function<void(const UserAccount&, const UserOutcome&)>& report);

} // namespace Qvctl
