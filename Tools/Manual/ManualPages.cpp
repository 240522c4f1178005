#include "Tools/Manual/ManualPages.h"

#include "Core/ManagedKeys.h"
#include "Platform/ASCII.h"
#include "Tools/Manual/CommandDescription.h"
#include "Tools/Manual/Prose.h"
#include "Tools/qvctl/ManagedKeyForms.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <string_view>

namespace Manual {

namespace {

/// `text` such that it prints as it is: the formatter takes a few characters for its own, and some for
/// typographic ones.
std::string literal(std::string_view text)
{
    std::string out;
    for (const char character : text) {
        switch (character) {
        case '\\':
            out += "\\e";
            break;
        case '-':
            out += "\\-";
            break;
        case '\'':
            out += "\\(aq";
            break;
        case '"':
            out += "\\(dq";
            break;
        case '~':
            out += "\\(ti";
            break;
        case '^':
            out += "\\(ha";
            break;
        case '`':
            out += "\\(ga";
            break;
        default:
            out += character;
        }
    }
    return out;
}

/// A line of text: one that begins with a full stop would be a request.
std::string textLine(std::string_view text)
{
    return fmt::format("{}{}\n", text.starts_with('.') ? "\\&" : "", literal(text));
}

std::string bold(std::string_view text)
{
    return fmt::format("\\fB{}\\fR", literal(text));
}

std::string italic(std::string_view text)
{
    return fmt::format("\\fI{}\\fR", literal(text));
}

std::string sentence(std::string_view text)
{
    return textLine(text.ends_with('.') ? std::string(text) : std::string(text) + ".");
}

/// Without hyphenation, which would fall on paths and names as well.
std::string header(const Prose& prose)
{
    std::string title = prose.name;
    std::transform(title.begin(), title.end(), title.begin(), Platform::upperCaseASCII);
    return fmt::format(".TH {} {} \"\" \"quorvane\\-mdm {}\" \"Quorvane MDM\"\n.nh\n.SH NAME\n{} \\- {}\n",
                       literal(title), prose.section, QV_VERSION, literal(prose.name),
                       literal(prose.tagline));
}

std::string description(const Prose& prose)
{
    std::string text = ".SH DESCRIPTION\n";
    const char* separator = "";
    for (const char* paragraph : prose.description) {
        text += separator + textLine(paragraph);
        separator = ".PP\n";
    }
    return text;
}

/// A list of terms, one under the other, each with its text.
std::string section(std::string_view title, std::span<const Prose::Entry> entries)
{
    if (entries.empty())
        return {};
    std::string text = fmt::format(".SH {}\n", title);
    for (const Prose::Entry& entry : entries)
        text += fmt::format(".TP\n{}\n{}", bold(entry.term), textLine(entry.text));
    return text;
}

std::string examples(std::span<const Prose::Entry> entries)
{
    std::string text = ".SH EXAMPLES\n";
    const char* separator = "";
    for (const Prose::Entry& entry : entries) {
        text += fmt::format("{}{}.PP\n.RS 4\n.EX\n{}.EE\n.RE\n", separator, textLine(entry.text),
                            textLine(entry.term));
        separator = ".PP\n";
    }
    return text;
}

std::string closing(const Prose& prose)
{
    return section("FILES", prose.files) + section("ENVIRONMENT", prose.environment) +
           section("EXIT STATUS", prose.exitStatus) +
           (prose.examples.empty() ? "" : examples(prose.examples)) +
           fmt::format(".SH SEE ALSO\n{}", textLine(prose.seeAlso));
}

std::string optionEntry(const OptionDescription& option)
{
    std::string names;
    for (const std::string& name : option.names)
        names += fmt::format("{}{}", names.empty() ? "" : ", ", bold(name));
    if (!option.value.placeholder.empty())
        names += " " + italic(option.value.placeholder);
    const auto& choices = option.value.choices;
    const bool areTold = std::all_of(choices.begin(), choices.end(), [&](const std::string& choice) {
        return option.text.find(choice) != std::string::npos;
    });
    const std::string list = areTold ? "" : fmt::format(": {}", fmt::join(choices, ", "));
    return fmt::format(".TP\n{}\n{}", names, sentence(option.text + list));
}

std::string verbSection(const CommandDescription& verb)
{
    std::string synopsis = bold(verb.path.substr(verb.path.find(' ') + 1));
    for (const ArgumentDescription& argument : verb.arguments) {
        const std::string name = italic(argument.value.placeholder) + (argument.isRepeated ? " [...]" : "");
        synopsis += argument.isRequired ? " " + name : " [" + name + "]";
    }
    std::string text = fmt::format(".SS {}\n{}", "\"" + synopsis + "\"", sentence(verb.text));
    for (const ArgumentDescription& argument : verb.arguments)
        text += fmt::format(".TP\n{}\n{}", italic(argument.value.placeholder), sentence(argument.text));
    for (const OptionDescription& option : verb.options)
        text += optionEntry(option);
    return text;
}

} // namespace

std::string programPage(const CommandDescription& program, const Prose& prose)
{
    std::string text = header(prose) + ".SH SYNOPSIS\n" + bold(prose.name) + " [" + italic("OPTION") + "...]";
    text += program.verbs.empty() ? "\n" : " " + italic("VERB") + " [" + italic("ARGUMENT") + "...]\n";
    text += description(prose);
    if (!program.verbs.empty())
        text += ".SH VERBS\n";
    for (const CommandDescription* command : flattened(program)) {
        if (command->verbs.empty() && command != &program)
            text += verbSection(*command);
    }
    text += ".SH OPTIONS\n";
    for (const OptionDescription& option : program.options)
        text += optionEntry(option);
    return text + closing(prose);
}

std::string policyPage(const Prose& prose)
{
    std::string text = header(prose) + description(prose) + ".SH KEYS\n";
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        text += fmt::format(".TP\n{}\n{}", bold(key.name), textLine(key.description));
        text += textLine(fmt::format("Accepted: {}.", Core::acceptedForms(key.kind)));
        if (key.isSecret)
            text += textLine("Secret: qvctl masks it, and no line of the log shows it.");
    }
    text += ".SH EXAMPLES\n";
    text += textLine("A policy with every key, as JSON. qvctl config schema --format sample prints it.");
    text += ".PP\n.RS 4\n.EX\n" + literal(Qvctl::prettyJSON(Qvctl::samplePolicy())) + "\n.EE\n.RE\n";
    return text + closing(prose);
}

} // namespace Manual
