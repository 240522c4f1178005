#pragma once

#include "Tools/Manual/Commands.h"
#include "Tools/Manual/Prose.h"

#include <string>

// The texts that this tool writes. None contains a date, so each build of a version writes the same.

namespace Manual {

/// A manual page in the language of man(7).
std::string programPage(const Command& program, const Prose& prose);
/// The manual page on the policy file and its keys.
std::string policyPage(const Prose& prose);

/// Scripts that complete the command line, each in the language of its shell.
std::string bashCompletion(const Command& program);
std::string zshCompletion(const Command& program);
std::string fishCompletion(const Command& program);

} // namespace Manual
