#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Manual {

/// What a value may be, of an option or an argument.
struct ValueDescription {
    /// "FILE", "N"; empty for an option that takes no value.
    std::string placeholder;
    /// All that are taken, where they are counted.
    std::vector<std::string> choices;

    [[nodiscard]] bool isFile() const { return placeholder == "FILE"; }
    friend bool operator==(const ValueDescription&, const ValueDescription&) = default;
};

struct OptionDescription {
    /// With their dashes, short ones first.
    std::vector<std::string> names;
    ValueDescription value;
    std::string text;
};

struct ArgumentDescription {
    ValueDescription value;
    std::string text;
    bool isRequired = false;
    /// Whether several may follow each other.
    bool isRepeated = false;
};

/// A program, a verb, or a word that verbs follow.
struct CommandDescription {
    /// From the program on: "qvctl config lint".
    std::string path;
    std::string text;
    /// Its own; those of the words before it are taken as well.
    std::vector<OptionDescription> options;
    std::vector<ArgumentDescription> arguments;
    std::vector<CommandDescription> verbs;

    /// The last word of the path.
    [[nodiscard]] std::string name() const { return path.substr(path.rfind(' ') + 1); }
};

/// What the parser knows.
CommandDescription describe(const CLI::App& parser);

/// The command and all below it, each before its verbs.
std::vector<const CommandDescription*> flattened(const CommandDescription& command);

/// Every option that takes a value, once. Throws `std::logic_error` when one name takes different values in
/// different places, which the completions could not tell apart.
std::vector<OptionDescription> valueOptions(const CommandDescription& program);

/// The options, those of the program included.
std::vector<OptionDescription> optionsAt(const CommandDescription& program,
                                         const CommandDescription& command);

/// The names of what is described, with blanks between them.
std::string joinedNames(const std::vector<OptionDescription>& options);

} // namespace Manual
