#include "Tools/qvctl/Policy/LintFindings.h"

#include "Core/ManagedKeys.h"
#include "Platform/Encoding.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/RequestRehearsal.h"
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

/// The words for one kind of finding; "{value}" stands for the value concerned, "{forms}" and "{example}" for
/// what the key accepts.
struct Wording {
    Severity severity;
    const char* problem;
    const char* effect;
    const char* fix;
};

Wording wordingOf(FindingKind kind)
{
    switch (kind) {
    case FindingKind::wrongType:
        return {Severity::error, "holds {value}", "it counts as missing", "write {forms}"};
    case FindingKind::blank:
        return {Severity::error, "is blank", "it counts as missing", "write the value, or leave the key out"};
    case FindingKind::elementNotText:
        return {Severity::error, "is {value}, not a text",
                "the whole list is dropped: no app may use single sign-on", "write every element as a text"};
    case FindingKind::entryEmpty:
        return {Severity::warning, "is an empty entry", "it is dropped",
                "remove the surplus comma or element"};
    case FindingKind::entryHasForbiddenCharacter:
        return {Severity::error, "{value} has a character other than a-z, A-Z, 0-9, \".\" and \"-\"",
                "it is dropped", "write the app's bundle identifier, such as {example}"};
    case FindingKind::entryHasNoDot:
        return {Severity::error, "{value} has no \".\"", "it is dropped",
                "write the app's whole bundle identifier, such as {example}"};
    case FindingKind::whiteSpaceTrimmed:
        return {Severity::note, "has white space at an end", "the white space is taken away", ""};
    case FindingKind::numberTakenAsText:
        return {Severity::note, "is a number", "its decimal text is used", ""};
    case FindingKind::booleanTakenAsText:
        return {Severity::warning, "is true or false", "1 or 0 is used as its text", "write {forms}"};
    case FindingKind::schemeAdded:
        return {Severity::note, "names no scheme", "https:// is put in front", ""};
    case FindingKind::schemeUpgraded:
        return {Severity::warning, "asks for plain http", "https is used instead", "write https://"};
    case FindingKind::entryRepeated:
        return {Severity::warning, "{value} stands in the list before", "it is kept twice",
                "remove one of them"};
    case FindingKind::quotationMarks:
        return {Severity::warning, "has quotation marks in it", "they are taken as part of the value",
                "remove them"};
    case FindingKind::schemeUnsupported:
        return {Severity::error, "names another scheme than https",
                "its name becomes the host, and the backend cannot be reached",
                "write https:// once, followed by the host, such as {example}"};
    case FindingKind::carriesPath:
        return {Severity::warning, "carries a path", "the path is put before that of every request",
                "leave the path out unless the backend really lives below it"};
    }
    return {};
}

/// The value that a finding is about: the one under its key, or one element or piece of it.
std::string concernedValue(const ValidationFinding& finding, const PropertyList::Dictionary& managed,
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
placeOf(const PropertyListDocument& document, std::string_view key, std::optional<std::size_t> index)
{
    const auto& places = document.places.byPath;
    auto found = index ? places.find(fmt::format("{}/{}", key, *index)) : places.end();
    if (found == places.end()) // A piece of a comma-separated text has the place of its text.
        found = places.find(key);
    return found != places.end() ? std::optional(found->second.value) : std::nullopt;
}

bool hasManagedKeys(const PropertyList::Dictionary& dictionary)
{
    return std::any_of(dictionary.begin(), dictionary.end(),
                       [](const auto& entry) { return Core::findManagedKey(entry.first) != nullptr; });
}

/// The path of the first dictionary inside `value` that has managed keys: "PayloadContent[0].Settings". Empty
/// when there is none.
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

/// What is wrong with a document that has none of the managed keys where the application looks for them, and
/// is no configuration with other keys.
std::optional<LintFinding> wrongDocument(const PropertyList::Dictionary& managed)
{
    LintFinding finding{.severity = Severity::error,
                        .key = "the file",
                        .index = {},
                        .position = {},
                        .problem = "is empty",
                        .effect = "it configures nothing",
                        .fix = "qvctl config schema --format sample prints a policy to start from"};
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
    finding.problem = isProfile ? "is a whole configuration profile"
                                : fmt::format("has the keys of this app inside {}", path);
    finding.effect = "the app finds none of its keys and configures nothing";
    finding.fix = path.empty() ? "deploy only the dictionary that holds the keys of this app"
                               : fmt::format("deploy only the dictionary that is {}", path);
    return finding;
}

/// Keys that the application never looks at.
std::vector<LintFinding> unknownKeys(const PropertyListDocument& document)
{
    std::vector<LintFinding> findings;
    for (const auto& [key, value] : *document.root.dictionary()) {
        if (Core::findManagedKey(key) != nullptr)
            continue;
        const auto place = document.places.byPath.find(key);
        const auto suggestion = suggestedKey(key);
        const bool isError = suggestion && isSpelledAlike(key, *suggestion);
        findings.push_back({
            .severity = isError ? Severity::error : Severity::warning,
            .key = key,
            .index = {},
            .position = place != document.places.byPath.end() ? place->second.key : std::nullopt,
            .problem = "is not a key of this app",
            .effect = "it is ignored",
            .fix = suggestion ? fmt::format("did you mean \"{}\"? Keys are case-sensitive", *suggestion)
                              : "remove it unless it is there for another reader",
        });
    }
    return findings;
}

LintFinding describe(const ValidationFinding& finding, const PropertyListDocument& document, bool isRevealing)
{
    const ManagedKey& key = *Core::findManagedKey(finding.key);
    const Wording words = wordingOf(finding.kind);
    const std::string value = concernedValue(finding, *document.root.dictionary(), isRevealing);
    return {
        .severity = words.severity,
        .key = std::string(finding.key),
        .index = finding.index,
        .position = placeOf(document, finding.key, finding.index),
        .problem = fmt::format(fmt::runtime(words.problem), fmt::arg("value", value)),
        .effect = words.effect,
        .fix = fmt::format(fmt::runtime(words.fix), fmt::arg("forms", Core::acceptedForms(key.kind)),
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
        .position = placeOf(document, value.key, {}),
        .problem = fmt::format("cannot be used: {}", value.reason),
        .effect = isAddress ? "the backend cannot be reached" : "no request can be sent to the backend",
        .fix = isAddress ? fmt::format("write https:// and the host, such as {}", key.example)
                         : "write the value as the backend knows it",
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
    if (const auto problem = wrongDocument(managed))
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
