#include "Tools/qvctl/Policy/LintFindings.h"

#include "Core/ManagedKeys.h"
#include "Platform/Encoding.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/RequestRehearsal.h"
#include "Tools/qvctl/Spelling.h"

#include <fmt/format.h>

#include <array>

namespace Qvctl::Policy {

namespace {

using Core::ValidationFinding;
using Platform::PropertyList;
using Platform::PropertyLists::PropertyListDocument;
using FindingKind = ValidationFinding::Kind;
using Core::ManagedKey;

/// The text for one kind of finding. Placeholders: {value} is the value concerned; {forms} and {example} are
/// what the key accepts.
struct FindingText {
    Severity severity;
    const char* problem;
    const char* effect;
    const char* fix;
};

FindingText textOf(FindingKind kind)
{
    switch (kind) {
    case FindingKind::wrongType:
        return {Severity::error, "has the wrong type: {value}", "the app ignores it", "use {forms}"};
    case FindingKind::blank:
        return {Severity::error, "is blank", "the app ignores it", "enter a value or remove the key"};
    case FindingKind::elementNotText:
        return {Severity::error, "is {value}, not a string",
                "the app ignores the whole list, so no app may use single sign-on",
                "make every element a string"};
    case FindingKind::entryEmpty:
        return {Severity::warning, "is empty", "it is ignored", "remove the extra comma or element"};
    case FindingKind::entryHasForbiddenCharacter:
        return {Severity::error, "{value} contains a character other than a-z, A-Z, 0-9, \".\" and \"-\"",
                "it is ignored", "use the app's bundle identifier, such as {example}"};
    case FindingKind::entryHasNoDot:
        return {Severity::error, "{value} has no \".\"", "it is ignored",
                "use the app's full bundle identifier, such as {example}"};
    case FindingKind::whiteSpaceTrimmed:
        return {Severity::note, "has leading or trailing white space", "it is removed", ""};
    case FindingKind::numberTakenAsText:
        return {Severity::note, "is a number", "it is converted to a string", ""};
    case FindingKind::booleanTakenAsText:
        return {Severity::warning, "is true or false", "it is converted to \"1\" or \"0\"", "use {forms}"};
    case FindingKind::schemeAdded:
        return {Severity::note, "has no scheme", "https:// is added", ""};
    case FindingKind::schemeUpgraded:
        return {Severity::warning, "uses http", "the app uses https instead", "write https://"};
    case FindingKind::entryRepeated:
        return {Severity::warning, "{value} is a duplicate", "it stays in the list twice", "remove it"};
    case FindingKind::quotationMarks:
        return {Severity::warning, "contains quotation marks", "they become part of the value",
                "remove them"};
    case FindingKind::schemeUnsupported:
        return {Severity::error, "has a scheme other than https",
                "the app takes the scheme for the host and cannot reach the backend",
                "write https:// once, followed by the host, such as {example}"};
    case FindingKind::carriesPath:
        return {Severity::warning, "contains a path", "the path is prepended to every request path",
                "remove the path unless the backend requires it"};
    }
    return {};
}

/// The value that a finding is about: the value of its key, or one element of that list.
std::string valueOf(const ValidationFinding& finding, const PropertyList::Dictionary& managed,
                    bool isRevealing)
{
    const PropertyList& value = managed.find(finding.key)->second;
    if (!isRevealing && isMasked(finding.key, value))
        return std::string(mask);
    if (!finding.index)
        return fmt::format("{} {}", value.typeName(), displayText(value));
    if (const auto* array = value.array())
        return displayText(array->at(*finding.index));
    return fmt::format("\"{}\"", Platform::printable(Core::splitAtCommas(*value.text()).at(*finding.index)));
}

std::optional<Platform::PropertyLists::TextPosition>
positionOf(const PropertyListDocument& document, std::string_view key, std::optional<std::size_t> index)
{
    const auto& places = document.places.byPath;
    auto found = index ? places.find(fmt::format("{}/{}", key, *index)) : places.end();
    if (found == places.end()) // The elements of a comma-separated string have the position of the string.
        found = places.find(key);
    return found != places.end() ? std::optional(found->second.value) : std::nullopt;
}

bool hasManagedKeys(const PropertyList::Dictionary& dictionary)
{
    return std::any_of(dictionary.begin(), dictionary.end(),
                       [](const auto& entry) { return Core::findManagedKey(entry.first) != nullptr; });
}

/// The path of the first dictionary inside `value` that contains managed keys: "PayloadContent[0].Settings".
/// Empty if no dictionary does.
std::string pathOfManagedKeys(const PropertyList& value, const std::string& path)
{
    const auto search = [&](const PropertyList& inner, const std::string& innerPath) {
        const auto* dictionary = inner.dictionary();
        return dictionary != nullptr && hasManagedKeys(*dictionary) ? innerPath
                                                                    : pathOfManagedKeys(inner, innerPath);
    };
    if (const auto* array = value.array()) {
        for (std::size_t index = 0; index < array->size(); ++index) {
            if (auto found = search((*array)[index], fmt::format("{}[{}]", path, index)); !found.empty())
                return found;
        }
    } else if (const auto* dictionary = value.dictionary()) {
        for (const auto& [key, inner] : *dictionary) {
            if (auto found = search(inner, path.empty() ? key : fmt::format("{}.{}", path, key));
                !found.empty())
                return found;
        }
    }
    return {};
}

/// Returns the problem of a document that is empty, or that contains the managed keys only in a nested
/// dictionary; absent for other documents.
std::optional<LintFinding> misplacedKeys(const PropertyList::Dictionary& managed)
{
    LintFinding finding{.severity = Severity::error,
                        .key = wholeFile,
                        .index = {},
                        .position = {},
                        .problem = "is empty",
                        .effect = "nothing is configured",
                        .fix = "start from the output of qvctl config schema --format sample"};
    if (managed.empty()) {
        finding.severity = Severity::warning;
        return finding;
    }
    if (hasManagedKeys(managed))
        return std::nullopt;
    const bool isProfile = managed.contains("PayloadContent") || managed.contains("PayloadType");
    const std::string path = pathOfManagedKeys(PropertyList(managed), "");
    if (!isProfile && path.empty())
        return std::nullopt;
    finding.problem = isProfile ? "is a complete configuration profile"
                                : fmt::format("has the managed keys inside {}", path);
    finding.effect = "the app finds no managed keys and configures nothing";
    finding.fix = path.empty() ? "deploy only the dictionary with the managed keys"
                               : fmt::format("deploy only the dictionary at {}", path);
    return finding;
}

/// Keys that the app does not know.
std::vector<LintFinding> unknownKeys(const PropertyListDocument& document)
{
    std::vector<LintFinding> findings;
    for (const auto& [key, value] : *document.root.dictionary()) {
        if (Core::findManagedKey(key) != nullptr)
            continue;
        const auto found = document.places.byPath.find(key);
        const auto suggestion = suggestedKey(key);
        const bool isError = suggestion && isSpelledAlike(key, *suggestion);
        findings.push_back({
            .severity = isError ? Severity::error : Severity::warning,
            .key = key,
            .index = {},
            .position = found != document.places.byPath.end() ? found->second.key : std::nullopt,
            .problem = "is not a managed key",
            .effect = "it is ignored",
            .fix = suggestion ? fmt::format("did you mean \"{}\"? Keys are case-sensitive", *suggestion)
                              : "remove it unless another program uses it",
        });
    }
    return findings;
}

LintFinding describe(const ValidationFinding& finding, const PropertyListDocument& document, bool isRevealing)
{
    const ManagedKey& key = *Core::findManagedKey(finding.key);
    const FindingText text = textOf(finding.kind);
    const std::string value = valueOf(finding, *document.root.dictionary(), isRevealing);
    return {
        .severity = text.severity,
        .key = std::string(finding.key),
        .index = finding.index,
        .position = positionOf(document, finding.key, finding.index),
        .problem = fmt::format(fmt::runtime(text.problem), fmt::arg("value", value)),
        .effect = text.effect,
        .fix = fmt::format(fmt::runtime(text.fix), fmt::arg("forms", Core::acceptedForms(key.kind)),
                           fmt::arg("example", Core::splitAtCommas(key.example).front())),
    };
}

LintFinding describe(const UnusableValue& value, const PropertyListDocument& document)
{
    const ManagedKey& key = *Core::findManagedKey(value.key);
    const bool isAddress = key.kind == ManagedKey::Kind::address;
    return {
        .severity = Severity::error,
        .key = std::string(value.key),
        .index = {},
        .position = positionOf(document, value.key, {}),
        .problem = fmt::format("cannot be used: {}", value.reason),
        .effect = isAddress ? "the backend cannot be reached" : "no request can be sent to the backend",
        .fix = isAddress ? fmt::format("write https:// and the host, such as {}", key.example)
                         : "use the value that the backend expects",
    };
}

} // namespace

std::string_view severityName(Severity severity)
{
    constexpr std::array<std::string_view, 3> names{"error", "warning", "note"};
    return names.at(static_cast<std::size_t>(severity));
}

std::optional<std::string_view> suggestedKey(std::string_view key)
{
    std::vector<std::string_view> names;
    for (const ManagedKey& known : Core::managedKeys())
        names.push_back(known.name);
    const auto closest = closestWord(key, names);
    return closest ? std::optional(names[*closest]) : std::nullopt;
}

bool isSecret(std::string_view key)
{
    const ManagedKey* known = Core::findManagedKey(key);
    return known == nullptr || known->isSecret;
}

bool isMasked(std::string_view key, const PropertyList& value)
{
    const auto* array = value.array();
    return isSecret(key) || value.dictionary() != nullptr ||
           (array != nullptr && std::any_of(array->begin(), array->end(), [&](const PropertyList& element) {
                return isMasked(key, element);
            }));
}

std::vector<LintFinding> findProblems(const PropertyListDocument& document, bool isRevealing)
{
    const PropertyList::Dictionary& managed = *document.root.dictionary();
    if (const auto problem = misplacedKeys(managed))
        return {*problem};
    std::vector<LintFinding> findings = unknownKeys(document);
    std::vector<ValidationFinding> validation;
    const auto config = Core::validateManagedConfiguration(managed, &validation);
    for (const ValidationFinding& finding : validation)
        findings.push_back(describe(finding, document, isRevealing));
    for (const UnusableValue& value : unusableValues(config))
        findings.push_back(describe(value, document));
    return findings;
}

} // namespace Qvctl::Policy
