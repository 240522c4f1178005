#include "Tools/Manual/CommandDescription.h"
#include "Tools/Manual/Completions.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace Manual {

namespace {

/// "{program}" and the like stand for what the command line has; the rest is the same for every program.
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

std::string assignments(const ValueDescription& value)
{
    return value.isFile() ? "files=yes" : fmt::format("words='{}'", fmt::join(value.choices, " "));
}

std::string wordsAt(const CommandDescription& program, const CommandDescription& command)
{
    std::vector<std::string> words;
    for (const CommandDescription& verb : command.verbs)
        words.push_back(verb.name());
    bool isTakingFiles = false;
    for (const ArgumentDescription& argument : command.arguments) {
        words.insert(words.end(), argument.value.choices.begin(), argument.value.choices.end());
        isTakingFiles |= argument.value.isFile();
    }
    return fmt::format("                '{}') words='{}' options='{}'{} ;;\n", command.path,
                       fmt::join(words, " "), joinedNames(optionsAt(program, command)),
                       isTakingFiles ? " files=yes" : "");
}

} // namespace

std::string bashCompletion(const CommandDescription& program)
{
    std::string function = program.path;
    std::replace(function.begin(), function.end(), '-', '_');
    std::vector<std::string> paths;
    std::string words;
    for (const CommandDescription* command : flattened(program)) {
        if (command != &program)
            paths.push_back(fmt::format("'{}'", command->path));
        words += wordsAt(program, *command);
    }
    const auto options = valueOptions(program);
    std::string values;
    for (const OptionDescription& option : options)
        values +=
            fmt::format("        {}) {} ;;\n", fmt::join(option.names, " | "), assignments(option.value));
    return fmt::format(scriptTemplate, fmt::arg("program", program.path), fmt::arg("function", function),
                       fmt::arg("valueOptions", fmt::format("' {} '", joinedNames(options))),
                       fmt::arg("paths", paths.empty() ? "''" : fmt::format("{}", fmt::join(paths, " | "))),
                       fmt::arg("values", values), fmt::arg("words", words));
}

} // namespace Manual
