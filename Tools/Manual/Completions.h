#pragma once

#include <string>

namespace Manual {

struct CommandDescription;

// The script by which a shell completes the command line of the program.
std::string bashCompletion(const CommandDescription& program);
std::string zshCompletion(const CommandDescription& program);
std::string fishCompletion(const CommandDescription& program);

} // namespace Manual
