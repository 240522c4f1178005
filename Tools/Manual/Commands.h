#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Manual {

/// An option or a positional argument.
struct Parameter {
    /// With their dashes, short ones first; empty for an argument.
    std::vector<std::string> names;
    /// "FILE", "N"; empty for an option without a value.
    std::string placeholder;
    /// The values that it accepts; empty when there is no such list.
    std::vector<std::string> choices;
    std::string text;
    bool isRequired = false;
    /// Whether several values may follow each other.
    bool isRepeated = false;

    [[nodiscard]] bool isTakingValue() const { return !placeholder.empty(); }
    [[nodiscard]] bool isTakingFile() const { return placeholder == "FILE"; }
};

/// A program, or one of its verbs.
struct Command {
    std::string name;
    /// From the program on: "qvctl config lint".
    std::string path;
    std::string text;
    /// Its own; a verb accepts those of the program as well.
    std::vector<Parameter> options;
    std::vector<Parameter> arguments;
    std::vector<Command> verbs;
};

/// The program as its parser knows it, or a verb of the command at `parentPath`.
Command describe(const CLI::App& parser, const std::string& parentPath = {});

/// The command and all verbs below it, each before its own verbs.
std::vector<const Command*> allCommands(const Command& command);

/// All options that the command accepts.
std::vector<Parameter> acceptedOptions(const Command& program, const Command& command);

/// All options that take a value, once each. Throws `std::logic_error` when one name takes different values
/// in different verbs, which the completions cannot tell apart.
std::vector<Parameter> valueOptions(const Command& program);

/// The names of all options, separated by spaces.
std::string joinedNames(const std::vector<Parameter>& options);

} // namespace Manual
