#include "Tools/Manual/CommandDescription.h"
#include "Tools/Manual/Completions.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <vector>

namespace Manual {

namespace {

/// Tells which verb the words before the cursor name; "{paths}" are all there are.
constexpr const char* pathFunction = R"(function __{function}_at
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
    std::string out = "'";
    for (const char character : text) {
        if (character == '\'' || character == '\\')
            out += '\\';
        out += character;
    }
    return out + "'";
}

std::string completesWith(const ValueDescription& value)
{
    if (value.isFile())
        return " -F";
    return value.choices.empty()
               ? ""
               : fmt::format(" -a {}", inQuotes(fmt::format("{}", fmt::join(value.choices, " "))));
}

std::string optionLine(const std::string& start, const OptionDescription& option)
{
    std::string line = start;
    for (const std::string& name : option.names)
        line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (!option.value.placeholder.empty())
        line += (option.value.isFile() ? " -r" : " -x") + completesWith(option.value);
    return fmt::format("{} -d {}\n", line, inQuotes(option.text));
}

} // namespace

std::string fishCompletion(const CommandDescription& program)
{
    std::string function = program.path;
    std::replace(function.begin(), function.end(), '-', '_');
    std::vector<std::string> paths;
    std::string lines;
    for (const CommandDescription* command : flattened(program)) {
        paths.push_back(inQuotes(command->path));
        const std::string always = "complete -c " + program.path;
        const std::string here = fmt::format("{} -n \"__{}_at {}\"", always, function, command->path);
        for (const OptionDescription& option : command->options)
            lines += optionLine(command == &program ? always : here, option);
        for (const CommandDescription& verb : command->verbs)
            lines += fmt::format("{} -a {} -d {}\n", here, verb.name(), inQuotes(verb.text));
        for (const ArgumentDescription& argument : command->arguments)
            lines += fmt::format("{}{}\n", here, completesWith(argument.value));
    }
    return fmt::format("# fish completion of {}\n\n", program.path) +
           fmt::format(pathFunction, fmt::arg("function", function), fmt::arg("program", program.path),
                       fmt::arg("valueOptions", joinedNames(valueOptions(program))),
                       fmt::arg("paths", fmt::join(paths, " "))) +
           fmt::format("complete -c {} -f\n", program.path) + lines;
}

} // namespace Manual
