#include "Tools/qvctl/HelpFormatter.h"

#include "Platform/NumberText.h"
#include "Tools/qvctl/Completion.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Qvctl {

namespace {

constexpr std::size_t detailIndentation = 28;

/// The name, and next to it the wrapped description.
std::string helpEntry(const std::string& name, const std::string& description, std::size_t indentation)
{
    const std::size_t width = outputWidth();
    const std::string lineStart = "\n" + std::string(indentation, ' ');
    std::string text = "  " + name;
    text += text.size() < indentation ? std::string(indentation - text.size(), ' ') : lineStart;
    std::size_t column = indentation;
    std::istringstream words(description);
    for (std::string word; words >> word; column += word.size()) {
        const bool isFirst = column == indentation;
        if (!isFirst && column + 1 + word.size() > width) {
            text += lineStart;
            column = indentation;
        } else if (!isFirst) {
            text += ' ';
            ++column;
        }
        text += word;
    }
    return text + "\n";
}

std::string firstPart(const std::string& description)
{
    return description.substr(0, std::min(description.find(';'), description.find(" (")));
}

std::string optionTerm(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    const std::string value =
        option.get_items_expected_max() == 0 ? "" : " " + type.substr(0, type.find(':'));
    return fmt::format("{}", fmt::join(namesOf(option), ", ")) + value;
}

} // namespace

std::size_t outputWidth()
{
    constexpr double narrowest = 40;
    constexpr double widest = 120;
    constexpr double usual = 80;
    const char* variable = std::getenv("COLUMNS");
    std::optional<double> width = Platform::parseDecimal(variable != nullptr ? variable : "");
    winsize size{};
    if (!width && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        width = size.ws_col;
    // NaN would pass std::clamp.
    return static_cast<std::size_t>(width >= narrowest ? std::min(*width, widest)
                                    : width            ? narrowest
                                                       : usual);
}

HelpFormatter::HelpFormatter()
{
    column_width(detailIndentation);
    label("Positionals", "Arguments");
    label("SUBCOMMAND", "COMMAND");
}

std::string HelpFormatter::make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const
{
    return command->get_parent() == nullptr ? overview(*command)
                                            : Formatter::make_help(command, std::move(name), mode);
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool isArgument) const
{
    return helpEntry(isArgument ? make_option_name(option, true) : optionTerm(*option),
                     option->get_description(), detailIndentation);
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const
{
    return helpEntry(command->get_name(), command->get_description(), detailIndentation);
}

std::string HelpFormatter::overview(const CLI::App& program) const
{
    constexpr std::size_t commandIndentation = 17;
    constexpr std::size_t optionIndentation = 32;
    std::string text =
        fmt::format("Usage: {0} COMMAND [OPTION...] (details: {0} help COMMAND)\n", program.get_name());
    std::vector<std::string> groups;
    for (const CLI::App* command : commandsOf(program)) {
        if (std::find(groups.begin(), groups.end(), command->get_group()) == groups.end())
            groups.push_back(command->get_group());
    }
    std::erase(groups, ""); // Not listed.
    for (const std::string& group : groups) {
        text += group + ":\n";
        for (const CLI::App* command : commandsOf(program)) {
            if (command->get_group() == group)
                text +=
                    helpEntry(command->get_name(), firstPart(command->get_description()), commandIndentation);
        }
    }
    text += "Options of all commands:\n";
    for (const CLI::Option* option : program.get_options()) {
        if (option != program.get_help_ptr())
            text += helpEntry(optionTerm(*option), firstPart(option->get_description()), optionIndentation);
    }
    return text + program.get_footer() + "\n";
}

} // namespace Qvctl
