#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace Qvctl {

/// Describes the error. For a mistyped command, the library only reports that a command is missing.
std::string describeUsageError(const CLI::ParseError& error, const CLI::App& parser);
/// Describes that `group` has no command `word`. Suggests a similar command of the group or, if it has none,
/// of `parser`.
std::string describeUnknownCommand(const std::string& word, const CLI::App& group, const CLI::App& parser);

} // namespace Qvctl
