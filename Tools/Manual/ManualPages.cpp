#include "Core/ManagedKeys.h"
#include "Platform/ASCII.h"
#include "Tools/Manual/Replace.h"
#include "Tools/Manual/Writers.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/ManagedKeyForms.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <vector>

namespace Manual {

namespace {

/// Escapes what the formatter takes for a command or replaces by a typographic character.
std::string literal(std::string_view text)
{
    return replaced(text, {{'\\', "\\e"},
                           {'-', "\\-"},
                           {'\'', "\\(aq"},
                           {'"', "\\(dq"},
                           {'~', "\\(ti"},
                           {'^', "\\(ha"},
                           {'`', "\\(ga"}});
}

/// A line of text; the formatter takes a full stop at its start for a request.
std::string textLine(std::string_view text)
{
    return fmt::format("{}{}\n", text.starts_with('.') ? "\\&" : "", literal(text));
}

std::string sentence(std::string_view text)
{
    return textLine(text.ends_with('.') ? std::string(text) : std::string(text) + ".");
}

std::string bold(std::string_view text)
{
    return fmt::format("\\fB{}\\fR", literal(text));
}

std::string italic(std::string_view text)
{
    return fmt::format("\\fI{}\\fR", literal(text));
}

std::string listItem(std::string_view formattedTerm, std::string_view formattedText)
{
    return fmt::format(".TP\n{}\n{}", formattedTerm, formattedText);
}

std::string code(std::string_view lines)
{
    return ".PP\n.RS 4\n.EX\n" + textLine(lines) + ".EE\n.RE\n";
}

/// Without hyphenation, which would split paths and names as well.
std::string header(const Prose& prose)
{
    std::string title = prose.name;
    std::ranges::transform(title, title.begin(), Platform::upperCaseASCII);
    return fmt::format(".TH {} {} \"\" \"quorvane\\-mdm {}\" \"Quorvane MDM\"\n.nh\n.SH NAME\n{} \\- {}\n",
                       literal(title), prose.section, QV_VERSION, literal(prose.name),
                       literal(prose.tagline));
}

std::string description(const Prose& prose)
{
    std::string text;
    for (const char* paragraph : prose.description)
        text += (text.empty() ? ".SH DESCRIPTION\n" : ".PP\n") + textLine(paragraph);
    return text;
}

std::string list(std::string_view title, const std::vector<Prose::Entry>& entries)
{
    std::string text = entries.empty() ? "" : fmt::format(".SH {}\n", title);
    for (const Prose::Entry& entry : entries)
        text += listItem(bold(entry.term), textLine(entry.text));
    return text;
}

std::string closing(const Prose& prose)
{
    std::string examples;
    for (const Prose::Entry& example : prose.examples)
        examples +=
            (examples.empty() ? ".SH EXAMPLES\n" : ".PP\n") + textLine(example.text) + code(example.term);
    return list("FILES", prose.files) + list("ENVIRONMENT", prose.environment) +
           list("EXIT STATUS", prose.exitStatus) + examples + ".SH SEE ALSO\n" + textLine(prose.seeAlso);
}

std::string optionItem(const Parameter& option)
{
    std::vector<std::string> names;
    for (const std::string& name : option.names)
        names.push_back(bold(name));
    std::string term = fmt::format("{}", fmt::join(names, ", "));
    if (option.isTakingValue())
        term += " " + italic(option.placeholder);
    const bool isListed = std::ranges::all_of(option.choices, [&](const std::string& choice) {
        return option.text.find(choice) != std::string::npos;
    });
    const std::string choices = isListed ? "" : fmt::format(": {}", fmt::join(option.choices, ", "));
    return listItem(term, sentence(option.text + choices));
}

std::string verbSection(const Command& verb)
{
    std::string synopsis = bold(verb.path.substr(verb.path.find(' ') + 1));
    std::string parameters;
    for (const Parameter& argument : verb.arguments) {
        const std::string name = italic(argument.placeholder) + (argument.isRepeated ? " [...]" : "");
        synopsis += argument.isRequired ? " " + name : " [" + name + "]";
        parameters += listItem(name, sentence(argument.text));
    }
    for (const Parameter& option : verb.options)
        parameters += optionItem(option);
    return fmt::format(".SS \"{}\"\n{}{}", synopsis, sentence(verb.text), parameters);
}

} // namespace

std::string programPage(const Command& program, const Prose& prose)
{
    std::string synopsis = bold(prose.name) + " [" + italic("OPTION") + "...]";
    std::string verbs;
    if (!program.verbs.empty()) {
        synopsis += " " + italic("VERB") + " [" + italic("ARGUMENT") + "...]";
        verbs = ".SH VERBS\n";
    }
    for (const Command* command : allCommands(program)) {
        if (command->verbs.empty() && command != &program)
            verbs += verbSection(*command);
    }
    std::string options = ".SH OPTIONS\n";
    for (const Parameter& option : program.options)
        options += optionItem(option);
    return header(prose) + ".SH SYNOPSIS\n" + synopsis + "\n" + description(prose) + verbs + options +
           closing(prose);
}

std::string policyPage(const Prose& prose)
{
    std::string keys = ".SH KEYS\n";
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        keys += listItem(bold(key.name), textLine(key.description));
        keys += textLine(fmt::format("Accepted: {}.", Core::acceptedForms(key.kind)));
        if (key.isSecret)
            keys += textLine("Secret: qvctl masks it, and no line of the log shows it.");
    }
    const std::string sample =
        ".SH EXAMPLES\n" +
        textLine("A policy with every key, as JSON. qvctl config schema --format sample prints it.") +
        code(Qvctl::prettyJSON(Qvctl::Policy::samplePolicy()));
    return header(prose) + description(prose) + keys + sample + closing(prose);
}

} // namespace Manual
