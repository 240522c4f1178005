#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace Qvctl {

/// The candidates for the last of `words`, the words after the program's name up to the cursor; the last one
/// is empty where a new word begins. A "=" between an option and its value may be a word of its own. Returns
/// one line per candidate: the word and, after a tab, its description if it has one; or the line ":files"
/// where a file belongs. The shell filters the candidates.
std::string completions(const CLI::App& program, std::vector<std::string> words);

/// The commands directly below `group`.
std::vector<const CLI::App*> commandsOf(const CLI::App& group);
/// The option's names with their dashes, short names first.
std::vector<std::string> namesOf(const CLI::Option& option);
/// The values that the option or argument accepts; empty if it accepts more than a list of words.
std::vector<std::string> choicesOf(const CLI::Option& option);

} // namespace Qvctl
