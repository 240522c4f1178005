#include "Core/ManagedConfigurationValidation.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/DevicePolicy.h"
#include "Tools/qvctl/ManagedValues.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/LintOutput.h"
#include "Tools/qvctl/Policy/ManagedKeyForms.h"
#include "Tools/qvctl/Policy/PolicyFiles.h"

#include <fmt/format.h>

#include <optional>
#include <utility>

namespace Qvctl {

namespace {

namespace json = boost::json;
using namespace Platform::PropertyLists;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;
using namespace Policy;
using Platform::PropertyList;

/// Reads this device's policy file and warns about ignored ones. Throws `CommandError` if none exists.
DevicePolicy readDevicePolicy(const Options& options)
{
    auto policy = DevicePolicy::read(options.managedConfiguration, WithPlaces::yes);
    if (policy.bestReading().state == PolicyFileReading::State::missing)
        throw CommandError(noInput, "no policy file: " + policy.absence());
    if (!policy.ignored.empty())
        printError("{}", policy.ignoredText());
    return policy;
}

/// The value that the app uses for `key`; absent if it uses none. `config` is validated and masked.
std::optional<std::string> effectiveValue(const Core::ManagedKey& key, const Core::ValidatedConfig& config,
                                          const PropertyList::Dictionary& managed, bool isRevealing)
{
    if (key.isStored())
        return Core::valuesOf(key, config).empty() ? std::nullopt : std::optional(joinedValues(key, config));
    const auto found = managed.find(key.name);
    if (found == managed.end())
        return std::nullopt;
    return !isRevealing && isMasked(key.name, found->second) ? std::string(mask)
                                                             : found->second.description();
}

/// Why a key has its effective value.
std::vector<std::string> reasons(const Core::ManagedKey& key, const PropertyList::Dictionary& managed,
                                 const std::vector<LintFinding>& findings)
{
    if (managed.find(key.name) == managed.end())
        return {"the policy file does not set this key"};
    std::vector<std::string> sentences;
    for (const LintFinding& finding : findings) {
        if (finding.key == key.name)
            sentences.push_back(
                fmt::format("{} {}; {}", subjectOf(finding), finding.problem, finding.effect));
    }
    if (sentences.empty())
        sentences.emplace_back("used as written");
    return sentences;
}

/// `content` is an object, or XML as a string.
ExitCode printSchema(const Options& options, const json::value& content)
{
    if (options.isJSON)
        printJSON({{"content", content}});
    else if (const auto* text = content.if_string())
        writeOutput(*text);
    else
        writeOutput(prettyJSON(content) + "\n");
    return success;
}

} // namespace

ExitCode configShow(const Options& options)
{
    const DevicePolicy policy = readDevicePolicy(options);
    const PolicyFileReading& reading = policy.bestReading();
    if (reading.state != PolicyFileReading::State::good)
        return failUnusable(options, reading);
    json::object values;
    for (const auto& [key, value] : *reading.document.root.dictionary()) {
        const bool isHidden = !options.isRevealing && isMasked(key, value);
        if (options.isJSON)
            values.emplace(key, isHidden ? json::value(mask) : jsonValue(value));
        else
            print("{:<40}{}\n", key, isHidden ? std::string(mask) : displayText(value));
    }
    if (options.isJSON)
        printJSON({{"path", reading.path.string()},
                   {"format", formatName(reading.document.format)},
                   {"ignored", pathsJSON(policy.ignored)},
                   {"configuration", std::move(values)}});
    return success;
}

ExitCode configExplain(const Options& options, const std::optional<std::string>& file)
{
    DevicePolicy policy;
    if (file)
        policy.reading = readNamedPolicy(*file);
    else
        policy = readDevicePolicy(options);
    const PolicyFileReading& reading = policy.bestReading();
    if (reading.state != PolicyFileReading::State::good)
        return failUnusable(options, reading);
    const PropertyList::Dictionary& managed = *reading.document.root.dictionary();
    const std::vector<LintFinding> findings = findProblems(reading.document, options.isRevealing);
    const auto config = maskedConfig(Core::validateManagedConfiguration(managed), options.isRevealing);
    json::object keys;
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        const auto value = effectiveValue(key, config, managed, options.isRevealing);
        const auto why = reasons(key, managed, findings);
        if (options.isJSON) {
            keys[key.name] = {{"description", key.description},
                              {"effective", value ? json::value(*value) : json::value()},
                              {"reasons", json::array(why.begin(), why.end())}};
            continue;
        }
        print("{:<40}{}\n", key.name, value ? styled("{}", *value) : toned(Tone::warning, "(none)"));
        for (const std::string& reason : why)
            print("    {}\n", reason);
        print("    {}\n", toned(Tone::faint, key.description));
    }
    if (options.isJSON)
        printJSON({{"path", reading.path.string()},
                   {"ignored", pathsJSON(policy.ignored)},
                   {"keys", std::move(keys)},
                   {"findings", findingsJSON(findings)}});
    return success;
}

ExitCode configSchema(const Options& options, SchemaFormat format)
{
    return printSchema(options, format == SchemaFormat::jsonSchema  ? json::value(jsonSchema())
                                : format == SchemaFormat::appConfig ? json::value(appConfigForm())
                                                                    : json::value(samplePolicy()));
}

ExitCode snapshotSchema(const Options& options)
{
    return printSchema(options, Policy::snapshotSchema());
}

} // namespace Qvctl
