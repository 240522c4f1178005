#pragma once

#include <string>

namespace Manual {

struct CommandDescription;
struct Prose;

// Pages in the language of man(7), the same for each build of one version.

std::string programPage(const CommandDescription& program, const Prose& prose);
/// Of the policy file and its keys.
std::string policyPage(const Prose& prose);

} // namespace Manual
