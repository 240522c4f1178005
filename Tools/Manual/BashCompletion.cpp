#include "Tools/Manual/Replace.h"
#include "Tools/Manual/Writers.h"

#include <fmt/format.h>

#include <vector>

namespace Manual {

namespace {

/// For fmt::format. "{program}", "{paths}" and so on come from the command line; the rest is fixed.
constexpr const char* scriptTemplate = R"(# bash completion of {program}

_{function}() {{
    local word previous= path={program} current=${{COMP_WORDS[COMP_CWORD]}} words= options= files= i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${{COMP_WORDS[i]}}
        # What is written --option=value comes in three words.
        [[ $word == = ]] && continue
        if [[ {valueOptions} == *" $previous "* ]]; then
            previous=
            continue
        fi
        case "$path $word" in
            {paths}) path="$path $word" ;;
        esac
        previous=$word
    done
    [[ $current == = ]] && current=
    case $previous in
{values}        *)
            case $path in
{words}            esac
            [[ $current == -* || -z $words$files ]] && words=$options files=
            ;;
    esac
    COMPREPLY=($(compgen -W "$words" -- "$current"))
    if [[ -n $files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t -O "${{#COMPREPLY[@]}}" COMPREPLY < <(compgen -f -- "$current")
    fi
}}
complete -F _{function} {program}
)";

/// Completes the value of an option.
std::string valueCase(const Parameter& option)
{
    const std::string values =
        option.isTakingFile() ? "files=yes" : fmt::format("words='{}'", fmt::join(option.choices, " "));
    return fmt::format("        {}) {} ;;\n", fmt::join(option.names, " | "), values);
}

/// Completes a word that is not the value of an option.
std::string wordCase(const Command& program, const Command& command)
{
    std::vector<std::string> words;
    for (const Command& verb : command.verbs)
        words.push_back(verb.name);
    const char* files = "";
    for (const Parameter& argument : command.arguments) {
        words.insert(words.end(), argument.choices.begin(), argument.choices.end());
        if (argument.isTakingFile())
            files = " files=yes";
    }
    return fmt::format("                '{}') words='{}' options='{}'{} ;;\n", command.path,
                       fmt::join(words, " "), joinedNames(acceptedOptions(program, command)), files);
}

} // namespace

std::string bashCompletion(const Command& program)
{
    std::vector<std::string> paths;
    std::string words;
    for (const Command* command : allCommands(program)) {
        if (command != &program)
            paths.push_back(fmt::format("'{}'", command->path));
        words += wordCase(program, *command);
    }
    if (paths.empty())
        paths.emplace_back("''");
    const auto options = valueOptions(program);
    std::string values;
    for (const Parameter& option : options)
        values += valueCase(option);
    return fmt::format(scriptTemplate, fmt::arg("program", program.path),
                       fmt::arg("function", replaced(program.path, {{'-', "_"}})),
                       fmt::arg("valueOptions", fmt::format("' {} '", joinedNames(options))),
                       fmt::arg("paths", fmt::join(paths, " | ")), fmt::arg("values", values),
                       fmt::arg("words", words));
}

} // namespace Manual
