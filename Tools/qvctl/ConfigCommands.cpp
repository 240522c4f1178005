#include "Core/Constants.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/ManagedKeys.h"
#include "Platform/Linux/DevicePaths.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/DevicePolicy.h"
#include "Tools/qvctl/FindingText.h"
#include "Tools/qvctl/ManagedKeyForms.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/PolicyInstaller.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <utility>

namespace Qvctl {

namespace {

namespace json = boost::json;
namespace Keys = Core::Constants::ManagedConfigKeys;
using namespace Platform::Linux;
using Platform::PropertyList;
using State = PolicyFileReading::State;

/// Reports why a file has no dictionary to work with; returns the exit code for it.
ExitCode reportUnusable(const Options& options, const PolicyFileReading& reading)
{
    const std::string text = reading.state == State::missing
                                 ? reading.path.string() + ": there is no such file"
                                 : reading.diagnostic();
    const bool isAbsent = reading.state == State::missing || reading.state == State::unreadable;
    return fail(options, isAbsent ? noInput : configuration, text, {{"path", reading.path.string()}});
}

PolicyFileReading readNamedFile(const std::string& file)
{
    return readPolicyFile(std::filesystem::absolute(file), TrustCheck::skipped, WithPlaces::yes);
}

/// The policy of this device, with a warning about a file that it hides. Throws `VerbError` when there is
/// none.
DevicePolicy readDevicePolicy(const Options& options)
{
    auto policy = DevicePolicy::read(options.managedConfiguration, WithPlaces::yes);
    if (policy.bestReading().state == State::missing)
        throw VerbError(noInput, "there is no such file: " + policy.absence());
    if (!policy.ignored.empty())
        printError("{}", policy.ignoredText());
    return policy;
}

std::string subject(const Finding& finding)
{
    return finding.index ? fmt::format("{}[{}]", finding.key, *finding.index) : finding.key;
}

std::string place(const std::filesystem::path& file, const std::optional<TextPosition>& position)
{
    return position ? fmt::format("{}:{}:{}", file.string(), position->line, position->column)
                    : file.string();
}

Tone toneOf(Severity severity)
{
    return severity == Severity::error     ? Tone::bad
           : severity == Severity::warning ? Tone::warning
                                           : Tone::faint;
}

/// One finding on one line; `severity` is its name, in color or not.
std::string findingLine(const std::filesystem::path& file, const Finding& finding, const Styled& severity)
{
    return styled("{}: {}: {} {}; {}{}{}\n", place(file, finding.position), severity, subject(finding),
                  finding.problem, finding.effect, finding.mend.empty() ? "" : "; ", finding.mend)
        .text;
}

json::array findingsJSON(const std::vector<Finding>& findings)
{
    json::array list;
    for (const Finding& finding : findings) {
        json::object object{{"severity", severityName(finding.severity)}, {"key", finding.key}};
        object["index"] = finding.index ? json::value(*finding.index) : json::value();
        object["line"] = finding.position ? json::value(finding.position->line) : json::value();
        object["column"] = finding.position ? json::value(finding.position->column) : json::value();
        object["problem"] = finding.problem;
        object["effect"] = finding.effect;
        object["mend"] = finding.mend;
        list.push_back(std::move(object));
    }
    return list;
}

bool hasErrors(const std::vector<Finding>& findings)
{
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.severity == Severity::error; });
}

/// A file that does not parse has one finding: where and why.
std::vector<Finding> findingsOf(const PolicyFileReading& reading, bool isRevealing)
{
    if (reading.state == State::good)
        return judge(reading.document, isRevealing);
    return {{.severity = Severity::error,
             .key = "the file",
             .index = {},
             .position = reading.position,
             .problem = fmt::format("is not taken: {}", reading.reason),
             .effect = "the last good configuration stays in force",
             .mend = ""}};
}

/// The value that the application uses for each key, by key; a missing member means none.
std::map<std::string_view, std::string> effectiveValues(const PropertyList::Dictionary& managed,
                                                        bool isRevealing)
{
    const Core::ValidatedConfig config = Core::validateManagedConfiguration(managed);
    std::map<std::string_view, std::string> values;
    const auto set = [&](std::string_view key, const std::optional<std::string>& value) {
        if (value)
            values[key] = isSecret(key) && !isRevealing ? std::string(mask) : *value;
    };
    set(Keys::organizationId, config.organizationId);
    set(Keys::BASE_DOMAIN, config.baseDomain);
    set(Keys::API_KEY, config.apiKey);
    set(Keys::DEVICE_ID, config.deviceId);
    if (!config.allowedAppBundleIds.empty())
        set(Keys::allowedAppBundleIds, fmt::format("{}", fmt::join(config.allowedAppBundleIds, ", ")));
    if (const auto schema = managed.find(Keys::schemaVersion); schema != managed.end())
        set(Keys::schemaVersion, !isRevealing && isMasked(Keys::schemaVersion, schema->second)
                                     ? std::string(mask)
                                     : schema->second.description());
    return values;
}

/// Why a key has the effective value it has.
std::vector<std::string> reasons(const Core::ManagedKey& key, const PropertyList::Dictionary& managed,
                                 const std::vector<Finding>& findings)
{
    if (managed.find(key.name) == managed.end())
        return {"the key is missing"};
    std::vector<std::string> texts;
    for (const Finding& finding : findings) {
        if (finding.key == key.name)
            texts.push_back(fmt::format("{} {}; {}", subject(finding), finding.problem, finding.effect));
    }
    if (texts.empty())
        texts.emplace_back("taken as written");
    return texts;
}

} // namespace

ExitCode configShow(const Options& options)
{
    const DevicePolicy policy = readDevicePolicy(options);
    const PolicyFileReading& reading = policy.bestReading();
    if (reading.state != State::good)
        return reportUnusable(options, reading);
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

ExitCode configLint(const Options& options, const std::string& file)
{
    const PolicyFileReading reading = readNamedFile(file);
    if (reading.state == State::missing || reading.state == State::unreadable)
        return reportUnusable(options, reading);
    const std::vector<Finding> findings = findingsOf(reading, options.isRevealing);
    if (options.isJSON)
        printJSON({{"path", file}, {"findings", findingsJSON(findings)}});
    else if (findings.empty())
        print("{}: {}\n", file, toned(Tone::good, "no problems found"));
    else
        for (const Finding& finding : findings)
            writeOutput(
                findingLine(file, finding, toned(toneOf(finding.severity), severityName(finding.severity))));
    return hasErrors(findings) ? configuration : success;
}

ExitCode configExplain(const Options& options, const std::optional<std::string>& file)
{
    DevicePolicy policy;
    if (file)
        policy.reading = readNamedFile(*file);
    else
        policy = readDevicePolicy(options);
    const PolicyFileReading& reading = policy.bestReading();
    if (reading.state != State::good)
        return reportUnusable(options, reading);
    const PropertyList::Dictionary& managed = *reading.document.root.dictionary();
    const std::vector<Finding> findings = judge(reading.document, options.isRevealing);
    const auto effective = effectiveValues(managed, options.isRevealing);
    json::object keys;
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        const auto value = effective.find(key.name);
        const auto why = reasons(key, managed, findings);
        if (options.isJSON) {
            keys[key.name] = {
                {"description", key.description},
                {"effective", value != effective.end() ? json::value(value->second) : json::value()},
                {"reasons", json::array(why.begin(), why.end())}};
            continue;
        }
        print("{:<40}{}\n", key.name,
              value != effective.end() ? styled("{}", value->second) : toned(Tone::warning, "no value"));
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

ExitCode configSet(const Options& options, const std::string& file)
{
    const PolicyFileReading reading = readNamedFile(file);
    if (reading.state != State::good)
        return reportUnusable(options, reading);
    const std::vector<Finding> findings = judge(reading.document, options.isRevealing);
    for (const Finding& finding : findings)
        writeDiagnostics(findingLine(file, finding, styled("{}", severityName(finding.severity))));

    const auto paths = DevicePaths::fromEnvironment(options.managedConfiguration);
    const Installation result =
        installPolicy(paths.managedConfigurationCandidates, reading.bytes, reading.document.format);
    if (!result.closedFolder.empty())
        printError("other users cannot enter {}, so an app that one of them runs does not find the policy "
                   "(chmod go+x)",
                   result.closedFolder);
    if (options.isJSON)
        printJSON({{"path", result.file.string()},
                   {"outcome", result.isChanged ? "installed" : "unchanged"},
                   {"findings", findingsJSON(findings)}});
    else if (result.isChanged)
        print("Installed {}\n", result.file);
    else
        print("{} is unchanged: it has this content already\n", result.file);
    return success;
}

ExitCode configClear(const Options& options)
{
    const auto paths = DevicePaths::fromEnvironment(options.managedConfiguration);
    const auto removed = removePolicy(paths.managedConfigurationCandidates);
    if (options.isJSON) {
        printJSON({{"removed", pathsJSON(removed)}});
    } else if (removed.empty()) {
        print("There was no managed configuration to remove\n");
    }
    for (const auto& path : removed) {
        if (!options.isJSON)
            print("Removed {}\n", path);
    }
    return success;
}

ExitCode configSchema(const Options& options, SchemaFormat format)
{
    const json::value content = format == SchemaFormat::jsonSchema  ? json::value(jsonSchema())
                                : format == SchemaFormat::appConfig ? json::value(appConfigForm())
                                                                    : json::value(samplePolicy());
    if (options.isJSON)
        printJSON({{"content", content}});
    else if (const auto* text = content.if_string())
        writeOutput(*text);
    else
        writeOutput(prettyJSON(content) + "\n");
    return success;
}

} // namespace Qvctl
