#pragma once

#include "Tools/qvctl/Commands.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace Qvctl {

/// Whose state a command shows; by default that of the user who runs it.
struct UserSelection {
    std::optional<std::string> name;
    bool isAllUsers = false;

    [[nodiscard]] bool isGiven() const { return name || isAllUsers; }
};

/// Runs `command`, which only reads, for the selected users and returns the highest exit code. Each user gets
/// `timeLimit`. Without a selection, runs it for this user; root without a state is told which users have
/// one.
///
/// `command` receives `options`, changed where the processes of the users need it. Errors: `CommandError`,
/// and those of `command`.
ExitCode runForSelection(const Options& options, const UserSelection& selection,
                         std::chrono::milliseconds timeLimit,
                         const std::function<ExitCode(const Options&)>& command);

} // namespace Qvctl
