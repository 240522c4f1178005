#include "Tools/Manual/Commands.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace Manual {

namespace {

/// Reads the choices from the type name, which is "PLACEHOLDER:{a,b}" for an option with choices.
std::vector<std::string> choicesOf(const std::string& typeName)
{
    const auto begin = typeName.find('{');
    const auto end = typeName.find('}');
    if (begin == std::string::npos || end == std::string::npos)
        return {};
    return CLI::detail::split(typeName.substr(begin + 1, end - begin - 1), ',');
}

Parameter describeParameter(const CLI::Option& option)
{
    Parameter parameter;
    for (const std::string& name : option.get_snames())
        parameter.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        parameter.names.push_back("--" + name);
    if (option.get_items_expected_max() > 0) {
        const std::string typeName = option.get_type_name();
        parameter.placeholder =
            option.get_positional() ? option.get_name(true) : typeName.substr(0, typeName.find(':'));
        parameter.choices = choicesOf(typeName);
    }
    parameter.text = option.get_description();
    parameter.isRequired = option.get_required();
    parameter.isRepeated = option.get_items_expected_max() > 1;
    return parameter;
}

} // namespace

Command describe(const CLI::App& parser, const std::string& parentPath)
{
    Command command;
    command.name = parser.get_name();
    command.path = parentPath.empty() ? command.name : parentPath + " " + command.name;
    command.text = parser.get_description();
    for (const CLI::Option* option : parser.get_options()) {
        if (option->get_positional())
            command.arguments.push_back(describeParameter(*option));
        else if (option != parser.get_help_ptr() || parentPath.empty()) // A verb's help is the program's.
            command.options.push_back(describeParameter(*option));
    }
    for (const CLI::App* verb : parser.get_subcommands([](const CLI::App*) { return true; }))
        command.verbs.push_back(describe(*verb, command.path));
    return command;
}

std::vector<const Command*> allCommands(const Command& command)
{
    std::vector<const Command*> all{&command};
    for (const Command& verb : command.verbs) {
        const auto below = allCommands(verb);
        all.insert(all.end(), below.begin(), below.end());
    }
    return all;
}

std::vector<Parameter> acceptedOptions(const Command& program, const Command& command)
{
    std::vector<Parameter> options = command.options;
    if (&program != &command)
        options.insert(options.end(), program.options.begin(), program.options.end());
    return options;
}

std::vector<Parameter> valueOptions(const Command& program)
{
    std::vector<Parameter> all;
    for (const Command* command : allCommands(program)) {
        for (const Parameter& option : command->options) {
            if (!option.isTakingValue())
                continue;
            const auto known = std::ranges::find(all, option.names, &Parameter::names);
            if (known == all.end())
                all.push_back(option);
            else if (known->placeholder != option.placeholder || known->choices != option.choices)
                throw std::logic_error(fmt::format("{} takes different values in {} and in another verb",
                                                   option.names.back(), command->path));
        }
    }
    return all;
}

std::string joinedNames(const std::vector<Parameter>& options)
{
    std::vector<std::string> names;
    for (const Parameter& option : options)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return fmt::format("{}", fmt::join(names, " "));
}

} // namespace Manual
