#include "Tools/Manual/Replace.h"
#include "Tools/Manual/Writers.h"

#include <fmt/format.h>

#include <string_view>
#include <vector>

namespace Manual {

namespace {

/// For a description between single quotes, where a colon ends it.
std::string escaped(std::string_view text)
{
    return replaced(text, {{'\'', "'\\''"}, {'\\', "\\\\"}, {':', "\\:"}});
}

/// What _arguments expects for a value: ":FILE:_files".
std::string valueOf(const Parameter& parameter)
{
    const std::string values = parameter.isTakingFile() ? "_files"
                               : parameter.choices.empty()
                                   ? " "
                                   : fmt::format("({})", fmt::join(parameter.choices, " "));
    return fmt::format(":{}:{}", parameter.placeholder, values);
}

std::string optionSpecification(const Parameter& option)
{
    const std::string text = replaced(escaped(option.text), {{'[', "\\["}, {']', "\\]"}});
    const std::string rest = fmt::format("[{}]{}", text, option.isTakingValue() ? valueOf(option) : "");
    if (option.names.size() == 1)
        return fmt::format("'{}{}{}'", option.names.front(), option.isTakingValue() ? "=" : "", rest);
    return fmt::format("'({})'{{{}}}'{}'", fmt::join(option.names, " "), fmt::join(option.names, ","), rest);
}

std::string functionName(const Command& command)
{
    return "_" + replaced(command.path, {{' ', "_"}});
}

/// For fmt::format: a command with verbs.
constexpr const char* groupTemplate = R"({function}_verbs() {{
    local -a verbs=(
{verbs}    )
    _describe verb verbs
}}

{function}() {{
    local state line
    typeset -A opt_args
    _arguments -C \
        {options} \
        '1: :{function}_verbs' \
        '*:: :->arguments'
    [[ $state == arguments ]] && case $line[1] in
{cases}    esac
}}

)";

/// For fmt::format: a command without verbs.
constexpr const char* verbTemplate = R"({function}() {{
    _arguments \
        {options}
}}

)";

std::string functionOf(const Command& program, const Command& command)
{
    std::vector<std::string> options;
    for (const Parameter& option : acceptedOptions(program, command))
        options.push_back(optionSpecification(option));
    for (const Parameter& argument : command.arguments)
        options.push_back(fmt::format("'{}{}'", argument.isRepeated ? "*" : ":", valueOf(argument)));
    const std::string optionLines = fmt::format("{}", fmt::join(options, " \\\n        "));
    if (command.verbs.empty())
        return fmt::format(verbTemplate, fmt::arg("function", functionName(command)),
                           fmt::arg("options", optionLines));
    std::string verbs;
    std::string cases;
    for (const Command& verb : command.verbs) {
        verbs += fmt::format("        '{}:{}'\n", verb.name, escaped(verb.text));
        cases += fmt::format("        {}) {} ;;\n", verb.name, functionName(verb));
    }
    return fmt::format(groupTemplate, fmt::arg("function", functionName(command)), fmt::arg("verbs", verbs),
                       fmt::arg("options", optionLines), fmt::arg("cases", cases));
}

} // namespace

std::string zshCompletion(const Command& program)
{
    std::string script = fmt::format("#compdef {}\n\n", program.path);
    for (const Command* command : allCommands(program))
        script += functionOf(program, *command);
    return script + fmt::format("{} \"$@\"\n", functionName(program));
}

} // namespace Manual
