#include "Tools/Manual/Replace.h"
#include "Tools/Manual/Writers.h"

#include <fmt/format.h>

#include <string_view>
#include <vector>

namespace Manual {

namespace {

/// For fmt::format. The function returns whether the words before the cursor name the verb of its argument.
constexpr const char* pathFunction = R"(# fish completion of {program}

function __{function}_at
    set -l path {program}
    set -l is_value no
    for word in (commandline -opc)[2..-1]
        if test $is_value = yes
            set is_value no
        else if contains -- $word {valueOptions}
            set is_value yes
        else if contains -- "$path $word" {paths}
            set path "$path $word"
        end
    end
    test "$path" = "$argv"
end

)";

std::string inQuotes(std::string_view text)
{
    return "'" + replaced(text, {{'\'', "\\'"}, {'\\', "\\\\"}}) + "'";
}

std::string valuesOf(const Parameter& parameter)
{
    if (parameter.isTakingFile())
        return " -F";
    return parameter.choices.empty()
               ? ""
               : " -a " + inQuotes(fmt::format("{}", fmt::join(parameter.choices, " ")));
}

std::string optionFlags(const Parameter& option)
{
    std::string flags;
    for (const std::string& name : option.names)
        flags += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (option.isTakingValue())
        flags += (option.isTakingFile() ? " -r" : " -x") + valuesOf(option);
    return flags + " -d " + inQuotes(option.text);
}

} // namespace

std::string fishCompletion(const Command& program)
{
    const std::string function = replaced(program.path, {{'-', "_"}});
    const std::string always = "complete -c " + program.path;
    std::vector<std::string> paths;
    std::string lines = always + " -f\n";
    for (const Command* command : allCommands(program)) {
        paths.push_back(inQuotes(command->path));
        const std::string here = fmt::format("{} -n \"__{}_at {}\"", always, function, command->path);
        for (const Parameter& option : command->options)
            lines += (command == &program ? always : here) + optionFlags(option) + "\n";
        for (const Command& verb : command->verbs)
            lines += fmt::format("{} -a {} -d {}\n", here, verb.name, inQuotes(verb.text));
        for (const Parameter& argument : command->arguments)
            lines += here + valuesOf(argument) + "\n";
    }
    return fmt::format(pathFunction, fmt::arg("program", program.path), fmt::arg("function", function),
                       fmt::arg("valueOptions", joinedNames(valueOptions(program))),
                       fmt::arg("paths", fmt::join(paths, " "))) +
           lines;
}

} // namespace Manual
