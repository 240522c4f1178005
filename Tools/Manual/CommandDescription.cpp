#include "Tools/Manual/CommandDescription.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace Manual {

namespace {

/// The parser renders a type as "PLACEHOLDER:CHECK", and the check for one of several values as "{a,b}".
std::vector<std::string> choicesOf(const std::string& type)
{
    const auto begin = type.find('{');
    const auto end = type.find('}');
    if (begin == std::string::npos || end == std::string::npos)
        return {};
    return CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',');
}

ValueDescription describeValue(const CLI::Option& option)
{
    if (option.get_items_expected_max() == 0)
        return {};
    const std::string type = option.get_type_name();
    return {option.get_positional() ? option.get_name(true) : type.substr(0, type.find(':')),
            choicesOf(type)};
}

OptionDescription describeOption(const CLI::Option& option)
{
    OptionDescription description{{}, describeValue(option), option.get_description()};
    for (const std::string& name : option.get_snames())
        description.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        description.names.push_back("--" + name);
    return description;
}

CommandDescription describeBelow(const CLI::App& parser, const std::string& pathAbove)
{
    CommandDescription command{pathAbove.empty() ? parser.get_name() : pathAbove + " " + parser.get_name(),
                               parser.get_description(),
                               {},
                               {},
                               {}};
    for (const CLI::Option* option : parser.get_options()) {
        const bool isHelpOfVerb = option == parser.get_help_ptr() && !pathAbove.empty();
        if (isHelpOfVerb)
            continue; // The same as that of the program.
        if (option->get_positional())
            command.arguments.push_back({describeValue(*option), option->get_description(),
                                         option->get_required(), option->get_items_expected_max() > 1});
        else
            command.options.push_back(describeOption(*option));
    }
    for (const CLI::App* verb : parser.get_subcommands([](const CLI::App*) { return true; }))
        command.verbs.push_back(describeBelow(*verb, command.path));
    return command;
}

} // namespace

CommandDescription describe(const CLI::App& parser)
{
    return describeBelow(parser, "");
}

std::vector<const CommandDescription*> flattened(const CommandDescription& command)
{
    std::vector<const CommandDescription*> all{&command};
    for (const CommandDescription& verb : command.verbs) {
        const auto below = flattened(verb);
        all.insert(all.end(), below.begin(), below.end());
    }
    return all;
}

std::vector<OptionDescription> valueOptions(const CommandDescription& program)
{
    std::vector<OptionDescription> all;
    for (const CommandDescription* command : flattened(program)) {
        for (const OptionDescription& option : command->options) {
            if (option.value.placeholder.empty())
                continue;
            const auto known = std::find_if(all.begin(), all.end(), [&](const OptionDescription& other) {
                return other.names == option.names;
            });
            if (known == all.end())
                all.push_back(option);
            else if (known->value != option.value)
                throw std::logic_error(fmt::format("{} takes other values elsewhere than in {}",
                                                   option.names.back(), command->path));
        }
    }
    return all;
}

std::vector<OptionDescription> optionsAt(const CommandDescription& program, const CommandDescription& command)
{
    std::vector<OptionDescription> options = command.options;
    if (&program != &command)
        options.insert(options.end(), program.options.begin(), program.options.end());
    return options;
}

std::string joinedNames(const std::vector<OptionDescription>& options)
{
    std::vector<std::string> names;
    for (const OptionDescription& option : options)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return fmt::format("{}", fmt::join(names, " "));
}

} // namespace Manual
