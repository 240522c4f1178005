#include "Tools/qvctl/UsageErrors.h"

#include "Tools/qvctl/Completion.h"
#include "Tools/qvctl/Spelling.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <functional>
#include <string_view>
#include <vector>

namespace Qvctl {

namespace {

/// The command in `group` or its subgroups most similar to `word`: "config show". Empty if none are similar.
std::string closestCommand(std::string_view word, const CLI::App& group)
{
    std::vector<std::string> names;
    std::vector<std::string> paths;
    const std::function<void(const CLI::App&, const std::string&)> addCommands =
        [&](const CLI::App& from, const std::string& prefix) {
            for (const CLI::App* command : commandsOf(from)) {
                names.push_back(command->get_name());
                paths.push_back(prefix + command->get_name());
                addCommands(*command, paths.back() + " ");
            }
        };
    addCommands(group, group.get_parent() != nullptr ? group.get_name() + " " : "");
    const auto closest = closestWord(word, {names.begin(), names.end()});
    return closest ? paths[*closest] : std::string();
}

} // namespace

std::string describeUsageError(const CLI::ParseError& error, const CLI::App& parser)
{
    const CLI::App* last = &parser;
    while (!last->get_subcommands().empty())
        last = last->get_subcommands().front();
    const bool isCommandMissing =
        dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !commandsOf(*last).empty();
    const auto unknown = parser.remaining(true);
    const bool isUnexpected = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    if (isCommandMissing && unknown.empty())
        return "a command is required";
    if (unknown.empty() || !(isCommandMissing || isUnexpected))
        return error.what();
    const std::string& word = unknown.front();
    if (word.starts_with('-'))
        return fmt::format("unknown option '{}'", word);
    if (!isCommandMissing)
        return fmt::format("unexpected argument '{}'", word);
    return describeUnknownCommand(word, *last, parser);
}

std::string describeUnknownCommand(const std::string& word, const CLI::App& group, const CLI::App& parser)
{
    auto suggestion = closestCommand(word, group);
    if (suggestion.empty())
        suggestion = closestCommand(word, parser);
    return fmt::format("unknown command '{}'{}", word,
                       suggestion.empty() ? "" : fmt::format(". Did you mean 'qvctl {}'?", suggestion));
}

} // namespace Qvctl
