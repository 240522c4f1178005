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

/// The file that sets a key, and the files whose values it replaces.
json::object sourceJSON(std::vector<std::filesystem::path> sources)
{
    json::object object{{"path", nullptr}};
    if (!sources.empty()) {
        object["path"] = sources.back().string();
        sources.pop_back();
    }
    object["replaced"] = pathsJSON(sources);
    return object;
}

/// Why a key has its effective value.
std::vector<std::string> reasons(const Core::ManagedKey& key, const PropertyList::Dictionary& managed,
                                 const std::vector<LintFinding>& findings)
{
    if (managed.find(key.name) == managed.end())
        return {"no policy file sets this key"};
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
    json::object sources;
    for (const auto& [key, value] : *reading.document.root.dictionary()) {
        const bool isHidden = !options.isRevealing && isMasked(key, value);
        if (options.isJSON) {
            values.emplace(key, isHidden ? json::value(mask) : jsonValue(value));
            sources.emplace(key, sourceJSON(policy.sourcesOf(key)));
            continue;
        }
        print("{:<40}{}\n", key, isHidden ? std::string(mask) : displayText(value));
        if (!policy.fragments.empty())
            print("    {}\n", toned(Tone::faint, "from " + sourceText(policy.sourcesOf(key))));
    }
    if (options.isJSON)
        printJSON({{"path", reading.path.string()},
                   {"format", formatName(reading.document.format)},
                   {"ignored", pathsJSON(policy.ignored)},
                   {"fragments", pathsJSON(policy.fragmentPaths())},
                   {"configuration", std::move(values)},
                   {"sources", std::move(sources)}});
    return success;
}

ExitCode configExplain(const Options& options, const std::optional<std::string>& file)
{
    const DevicePolicy policy =
        file ? DevicePolicy::ofFile(readNamedPolicy(*file)) : readDevicePolicy(options);
    const PolicyFileReading& reading = policy.bestReading();
    if (reading.state != PolicyFileReading::State::good)
        return failUnusable(options, reading);
    const PropertyList::Dictionary& managed = *reading.document.root.dictionary();
    const std::vector<LintFinding> findings = findingsOf(policy, options.isRevealing);
    const auto config = maskedConfig(Core::validateManagedConfiguration(managed), options.isRevealing);
    json::object keys;
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        const auto value = effectiveValue(key, config, managed, options.isRevealing);
        const auto why = reasons(key, managed, findings);
        const auto sources = policy.sourcesOf(key.name);
        if (options.isJSON) {
            json::object& object = keys[key.name].emplace_object();
            object = sourceJSON(sources);
            object["description"] = key.description;
            object["effective"] = value ? json::value(*value) : json::value();
            object["reasons"] = json::array(why.begin(), why.end());
            continue;
        }
        print("{:<40}{}\n", key.name, value ? styled("{}", *value) : toned(Tone::warning, "(none)"));
        for (const std::string& reason : why)
            print("    {}\n", reason);
        if (!policy.fragments.empty() && !sources.empty())
            print("    from {}\n", sourceText(sources));
        print("    {}\n", toned(Tone::faint, key.description));
    }
    if (options.isJSON)
        printJSON({{"path", reading.path.string()},
                   {"ignored", pathsJSON(policy.ignored)},
                   {"fragments", pathsJSON(policy.fragmentPaths())},
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
