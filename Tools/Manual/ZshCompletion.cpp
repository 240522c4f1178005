#include "Tools/Manual/CommandDescription.h"
#include "Tools/Manual/Completions.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <vector>

namespace Manual {

namespace {

/// `text` inside single quotes, with a backslash before each of `special`.
std::string escaped(std::string_view text, std::string_view special)
{
    std::string out;
    for (const char character : text) {
        if (character == '\'')
            out += "'\\'";
        else if (special.find(character) != std::string_view::npos)
            out += '\\';
        out += character;
    }
    return out;
}

/// What _arguments is told of a value: ":FILE:_files".
std::string action(const ValueDescription& value)
{
    const std::string choices = value.isFile()          ? "_files"
                                : value.choices.empty() ? " "
                                                        : fmt::format("({})", fmt::join(value.choices, " "));
    return fmt::format(":{}:{}", value.placeholder, choices);
}

std::string rule(const OptionDescription& option)
{
    const bool isTakingValue = !option.value.placeholder.empty();
    const std::string rest =
        fmt::format("[{}]{}", escaped(option.text, "[]:\\"), isTakingValue ? action(option.value) : "");
    const char* equals = isTakingValue ? "=" : "";
    if (option.names.size() == 1)
        return fmt::format("'{}{}{}'", option.names.front(), equals, rest);
    return fmt::format("'({})'{{{}}}'{}'", fmt::join(option.names, " "), fmt::join(option.names, ","), rest);
}

std::string functionName(const CommandDescription& command)
{
    std::string name = "_" + command.path;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

std::string verbList(const CommandDescription& command)
{
    std::string text = fmt::format("{}_verbs() {{\n    local -a verbs=(\n", functionName(command));
    for (const CommandDescription& verb : command.verbs)
        text += fmt::format("        '{}:{}'\n", verb.name(), escaped(verb.text, ":\\"));
    return text + "    )\n    _describe verb verbs\n}\n\n";
}

std::string completionOf(const CommandDescription& program, const CommandDescription& command)
{
    std::vector<std::string> rules;
    for (const OptionDescription& option : optionsAt(program, command))
        rules.push_back(rule(option));
    for (const ArgumentDescription& argument : command.arguments)
        rules.push_back(fmt::format("'{}{}'", argument.isRepeated ? "*" : ":", action(argument.value)));
    const std::string name = functionName(command);
    if (command.verbs.empty())
        return fmt::format("{}() {{\n    _arguments \\\n        {}\n}}\n\n", name,
                           fmt::join(rules, " \\\n        "));
    rules.push_back(fmt::format("'1: :{}_verbs'", name));
    rules.emplace_back("'*:: :->arguments'");
    std::string cases;
    for (const CommandDescription& verb : command.verbs)
        cases += fmt::format("        {}) {} ;;\n", verb.name(), functionName(verb));
    return verbList(command) +
           fmt::format(
               "{}() {{\n    local state line\n    typeset -A opt_args\n    _arguments -C \\\n        {}\n"
               "    [[ $state == arguments ]] && case $line[1] in\n{}    esac\n}}\n\n",
               name, fmt::join(rules, " \\\n        "), cases);
}

} // namespace

std::string zshCompletion(const CommandDescription& program)
{
    std::string script = fmt::format("#compdef {}\n\n", program.path);
    for (const CommandDescription* command : flattened(program))
        script += completionOf(program, *command);
    return script + fmt::format("{} \"$@\"\n", functionName(program));
}

} // namespace Manual
