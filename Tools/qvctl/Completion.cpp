#include "Tools/qvctl/Completion.h"

#include "Tools/qvctl/Device.h"
#include "Tools/qvctl/UserAccounts.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace Qvctl {

namespace {

std::string candidate(const std::string& word, const std::string& description = {})
{
    return word + (description.empty() ? "" : "\t" + description) + "\n";
}

/// The option of the command or its parents with that name and a value; null if no such option exists.
const CLI::Option* optionWithValue(const CLI::App* command, const std::string& name)
{
    for (; command != nullptr; command = command->get_parent()) {
        const CLI::Option* option = command->get_option_no_throw(name);
        if (option != nullptr && option->get_items_expected_max() > 0)
            return option;
    }
    return nullptr;
}

/// The applied version and the next one.
std::string versionCandidates()
{
    try {
        const auto snapshot = Device({}, Device::Access::inspect).storedSnapshot();
        const std::int64_t version = snapshot ? snapshot->configVersion : 0;
        return (snapshot ? candidate(std::to_string(version), "applied") : "") +
               candidate(std::to_string(version + 1), "next");
    } catch (const std::exception&) {
        return {};
    }
}

std::string valueCandidates(const CLI::Option& option, const std::string& prefix = {})
{
    if (option.get_type_name() == "FILE" || option.get_name(true) == "FILE")
        return ":files\n";
    if (option.get_type_name().starts_with("VERSION")) // The range follows.
        return versionCandidates();
    std::string candidates;
    if (option.get_type_name() == "USER") {
        for (const UserAccount& account : accountsWithState(listAccounts()))
            candidates += candidate(prefix + account.name);
    }
    for (const std::string& choice : choicesOf(option))
        candidates += candidate(prefix + choice);
    return candidates;
}

/// The options of the command and its parents.
std::string optionCandidates(const CLI::App* command)
{
    std::string candidates;
    for (; command != nullptr; command = command->get_parent()) {
        for (const CLI::Option* option : command->get_options()) {
            if (option == command->get_help_ptr() && command->get_parent() != nullptr)
                continue;
            for (const std::string& name : namesOf(*option))
                candidates += candidate(name, option->get_description());
        }
    }
    return candidates;
}

std::string commandCandidates(const CLI::App& group)
{
    std::string candidates;
    for (const CLI::App* command : commandsOf(group))
        candidates += candidate(command->get_name(), command->get_description());
    return candidates;
}

std::string wordCandidates(const CLI::App& command)
{
    std::string candidates = commandCandidates(command);
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional())
            candidates += valueCandidates(*option);
    }
    return candidates.empty() ? optionCandidates(&command) : candidates;
}

/// The command with that name; if there is no such command, the group itself.
const CLI::App* commandOrGroup(const CLI::App& group, const std::string& name)
{
    for (const CLI::App* command : commandsOf(group)) {
        if (command->get_name() == name)
            return command;
    }
    return &group;
}

} // namespace

std::vector<const CLI::App*> commandsOf(const CLI::App& group)
{
    return group.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<std::string> namesOf(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

/// CLI11 appends the choices to the name of the type: "FORMAT:{json-schema,sample}".
std::vector<std::string> choicesOf(const CLI::Option& option)
{
    const std::string typeName = option.get_type_name();
    const auto begin = typeName.find('{');
    const auto end = typeName.find('}');
    if (begin == std::string::npos || end == std::string::npos)
        return {};
    return CLI::detail::split(typeName.substr(begin + 1, end - begin - 1), ',');
}

std::string completions(const CLI::App& program, std::vector<std::string> words)
{
    const std::string last = words.empty() || words.back() == "=" ? "" : words.back();
    if (!words.empty())
        words.pop_back();
    const bool isHelp = !words.empty() && words.front() == "help"; // Followed by a command.
    if (isHelp)
        words.erase(words.begin());
    const CLI::App* command = &program;
    const CLI::Option* optionBefore = nullptr;
    for (const std::string& word : words) {
        if (word == "=")
            continue;
        const bool isValue = std::exchange(optionBefore, nullptr) != nullptr;
        if (isValue)
            continue;
        if (word.starts_with('-'))
            optionBefore = optionWithValue(command, word);
        else
            command = commandOrGroup(*command, word);
    }
    if (optionBefore != nullptr)
        return valueCandidates(*optionBefore);
    if (isHelp)
        return commandCandidates(*command);
    if (!last.starts_with('-'))
        return wordCandidates(*command);
    const auto valueBegin = last.find('=') + 1;
    const CLI::Option* option =
        valueBegin == 0 ? nullptr : optionWithValue(command, last.substr(0, valueBegin - 1));
    return option != nullptr ? valueCandidates(*option, last.substr(0, valueBegin))
                             : optionCandidates(command);
}

} // namespace Qvctl
