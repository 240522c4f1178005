// Completes a manual page, from standard input to standard output: replaces comments such as
// `.\" options of qvctl` by the tables they name, which come from the programs' parsers and the table of
// managed keys. The output contains no date, so every build of a version writes the same pages.

#include "App/LaunchOptions.h"
#include "Core/ManagedKeys.h"
#include "Tools/qvctl/CommandLine.h"
#include "Tools/qvctl/Completion.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/ManagedKeyForms.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace {

/// Escapes the characters that roff interprets or replaces by typographic ones.
std::string literal(std::string_view text)
{
    static const std::map<char, std::string_view> escapes{{'\\', "\\e"},  {'-', "\\-"},   {'\'', "\\(aq"},
                                                          {'"', "\\(dq"}, {'~', "\\(ti"}, {'^', "\\(ha"},
                                                          {'`', "\\(ga"}};
    // A full stop at the start of a line begins a request.
    std::string result = text.starts_with('.') ? "\\&" : "";
    for (const char character : text) {
        const auto escape = escapes.find(character);
        result += escape == escapes.end() ? std::string(1, character) : std::string(escape->second);
    }
    return result;
}

std::string sentence(std::string_view text)
{
    return literal(text) + (text.ends_with('.') ? "\n" : ".\n");
}

std::string bold(std::string_view text)
{
    return "\\fB" + literal(text) + "\\fR";
}

std::string italic(std::string_view text)
{
    return "\\fI" + literal(text) + "\\fR";
}

std::string item(const std::string& term, const std::string& text)
{
    return ".TP\n" + term + "\n" + text;
}

std::string argumentName(const CLI::Option& argument)
{
    return italic(argument.get_name(true)) + (argument.get_items_expected_max() > 1 ? " [...]" : "");
}

std::string optionTerm(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& name : Qvctl::namesOf(option))
        names.push_back(bold(name));
    const std::string typeName = option.get_type_name();
    const bool isTakingValue = option.get_items_expected_max() > 0;
    return fmt::format("{}{}", fmt::join(names, ", "),
                       isTakingValue ? " " + italic(typeName.substr(0, typeName.find(':'))) : "");
}

std::string options(const CLI::App& command)
{
    std::string items;
    for (const CLI::Option* option : command.get_options()) {
        // The page documents --help once, with the options of the program.
        if (option == command.get_help_ptr() && command.get_parent() != nullptr)
            continue;
        const std::string description = option->get_description();
        const auto choices = Qvctl::choicesOf(*option);
        const bool isListed = std::all_of(choices.begin(), choices.end(), [&](const std::string& choice) {
            return description.find(choice) != std::string::npos;
        });
        items += item(
            option->get_positional() ? argumentName(*option) : optionTerm(*option),
            sentence(isListed ? description : fmt::format("{}: {}", description, fmt::join(choices, ", "))));
    }
    return items;
}

/// A section for each command below `group`; `path` is the group's own command line, with a blank at the end.
std::string commands(const CLI::App& group, const std::string& path = {})
{
    std::string sections;
    for (const CLI::App* command : Qvctl::commandsOf(group)) {
        const std::string name = path + command->get_name();
        if (!Qvctl::commandsOf(*command).empty()) {
            sections += commands(*command, name + " ");
            continue;
        }
        std::string synopsis = bold(name);
        for (const CLI::Option* argument : command->get_options()) {
            if (argument->get_positional())
                synopsis += argument->get_required() ? " " + argumentName(*argument)
                                                     : " [" + argumentName(*argument) + "]";
        }
        sections += ".SS \"" + synopsis + "\"\n" + sentence(command->get_description()) + options(*command);
    }
    return sections;
}

std::string managedKeys()
{
    std::string items;
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        items += item(bold(key.name), literal(key.description) + "\n");
        items += sentence(fmt::format("Accepted: {}", Core::acceptedForms(key.kind)));
        if (key.isSecret)
            items += sentence("Secret: qvctl masks it, and it never appears in the log");
    }
    return items;
}

} // namespace

int main()
{
    Platform::DeviceOptions unused;
    const auto application = App::makeCommandLine(unused);
    const Qvctl::CommandLine console;
    const std::map<std::string, std::string> tables{
        {".\\\" options of quorvane-mdm", options(*application)},
        {".\\\" commands of qvctl", commands(console.parser())},
        {".\\\" options of qvctl", options(console.parser())},
        {".\\\" managed keys", managedKeys()},
        {".\\\" sample policy", literal(Qvctl::prettyJSON(Qvctl::Policy::samplePolicy())) + "\n"},
    };
    for (std::string line; std::getline(std::cin, line);) {
        const auto table = tables.find(line);
        std::cout << (table == tables.end() ? line + "\n" : table->second);
    }
    return std::cout.flush() ? 0 : Platform::ExitCode::unavailable;
}
