#pragma once

#include "Tools/qvctl/Commands.h"

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace Qvctl {

// The options of the commands that scripts use to check and to wait.

/// Adds --check[=CONDITIONS] to `status`. Without a value it stands for all conditions.
void addConditions(CLI::App& command, std::vector<std::string>& conditions);
/// Adds the options of `wait`.
void addGoals(CLI::App& command, WaitOptions& goal);
/// Adds --timeout SECONDS.
CLI::Option* addTimeout(CLI::App& command, WaitLimit& timeout);

} // namespace Qvctl
