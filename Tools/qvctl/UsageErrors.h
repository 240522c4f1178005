#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace Qvctl {

/// Describes the error. For a mistyped command, the library only reports that a command is missing.
std::string describeUsageError(const CLI::ParseError& error, const CLI::App& parser);
/// Describes that `group` has no command `word`, with a similar command of the group, or else of `parser`, if
/// there is one.
std::string describeUnknownCommand(const std::string& word, const CLI::App& group, const CLI::App& parser);

} // namespace Qvctl
