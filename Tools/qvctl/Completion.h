#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace Qvctl {

/// Returns the candidates for the last of `words`, one per line: the word and, after a tab, its description
/// if it has one. The line ":files" means that a file name is expected. The shell filters the candidates.
///
/// `words` are those between the program's name and the cursor; the last is empty if a new word begins. A "="
/// between an option and its value may be a separate word.
std::string completions(const CLI::App& program, std::vector<std::string> words);

/// The commands directly in `group`.
std::vector<const CLI::App*> commandsOf(const CLI::App& group);
/// The option's names with their dashes, short names first.
std::vector<std::string> namesOf(const CLI::Option& option);
/// The words that the option or argument accepts; empty if it accepts other values.
std::vector<std::string> choicesOf(const CLI::Option& option);

} // namespace Qvctl
