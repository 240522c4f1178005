// The commands that check, install and remove a policy file.

#include "Platform/Linux/DevicePaths.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/LintOutput.h"
#include "Tools/qvctl/Policy/PolicyFiles.h"
#include "Tools/qvctl/Policy/PolicyInstaller.h"
#include "Tools/qvctl/WaitCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Qvctl {

namespace {

namespace json = boost::json;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;
using namespace Policy;

bool isAbsent(const PolicyFileReading& reading)
{
    return reading.state == PolicyFileReading::State::missing ||
           reading.state == PolicyFileReading::State::unreadable;
}

ExitCode printLint(const Options& options, const std::string& path, const std::vector<LintFinding>& findings)
{
    if (options.isJSON)
        printJSON({{"path", path}, {"findings", findingsJSON(findings)}});
    else if (findings.empty())
        print("{}: {}\n", path, toned(Tone::good, "no problems found"));
    else
        printFindings(findings);
    return hasErrors(findings) ? configuration : success;
}

ExitCode lintFile(const Options& options, const std::string& file)
{
    const PolicyFileReading reading = readNamedPolicy(file);
    if (isAbsent(reading))
        return failUnusable(options, reading);
    return printLint(options, file, findingsOf(reading, options.isRevealing));
}

/// The candidates of the policy file. Throws `CommandError` if there are only fragments.
std::vector<std::filesystem::path> policyFiles(const Options& options)
{
    auto places = DevicePaths::policyPlaces(options.managedConfiguration);
    if (places.files.empty())
        throw CommandError(usage, fmt::format("{} is a folder of fragments; name the file in it, such as {}",
                                              places.fragments.string(),
                                              (places.fragments / "50-device.json").string()));
    return std::move(places.files);
}

/// A key of the installed file whose value a fragment replaces.
struct Overridden {
    std::string key;
    std::filesystem::path file;
};

std::vector<Overridden> overriddenKeys(const Options& options, const PolicyFileReading& installed)
{
    const auto policy =
        DevicePolicy::read(options.managedConfiguration, Platform::PropertyLists::WithPlaces::no);
    std::vector<Overridden> keys;
    for (const auto& [key, value] : *installed.document.root.dictionary()) {
        const auto sources = policy.sourcesOf(key);
        if (sources.size() > 1)
            keys.push_back({key, sources.back()});
    }
    return keys;
}

json::object pathsByKey(const std::vector<Overridden>& overridden)
{
    json::object paths;
    for (const auto& [key, file] : overridden)
        paths.emplace(key, file.string());
    return paths;
}

void printInstallation(const Installation& result, const std::vector<Overridden>& overridden)
{
    print("{}: {}\n", result.file, result.isChanged ? "changed" : "unchanged");
    for (const auto& [key, file] : overridden)
        print("{} has no effect here: {} replaces it\n", key, file);
}

/// Waits until the app has applied the installed file, and prints the end of the output.
ExitCode finishWaiting(const Options& options, const PolicyFileReading& installed, const InstallOptions& how,
                       json::object object)
{
    flushOutput();
    const WaitEnd end = waitUntilApplied(options, installed.bytes, how.timeout);
    object["isApplied"] = end.exitCode == success;
    if (end.exitCode != success)
        return fail(options, end.exitCode, "the file was installed, but " + end.reason, std::move(object));
    if (options.isJSON)
        printJSON(std::move(object));
    else
        print("The app has applied it.\n");
    return success;
}

} // namespace

ExitCode configLint(const Options& options, const std::vector<std::string>& files)
{
    if (files.empty()) {
        const DevicePolicy policy = readDevicePolicy(options);
        return printLint(options, policy.bestReading().path.string(),
                         findingsOf(policy, options.isRevealing));
    }
    ExitCode worst = success;
    for (const std::string& file : files)
        worst = std::max(worst, lintFile(options, file));
    return worst;
}

ExitCode configSet(const Options& options, const std::string& file, const InstallOptions& how)
{
    const PolicyFileReading reading = readNamedPolicy(file);
    if (isAbsent(reading))
        return failUnusable(options, reading);
    const auto findings = findingsOf(reading, options.isRevealing);
    if (!options.isJSON)
        reportFindings(findings);
    const bool isParsed = reading.state == PolicyFileReading::State::good;
    if (hasErrors(findings) && !(isParsed && how.isForced))
        return fail(options, configuration,
                    fmt::format("{} was not installed: {}", file,
                                isParsed ? "fix its errors, or install it anyway with --force"
                                         : "it cannot be parsed"),
                    {{"path", file}, {"outcome", "refused"}, {"findings", findingsJSON(findings)}});

    const Installation result = installPolicy(policyFiles(options), reading.bytes, reading.document.format);
    if (!result.closedFolder.empty())
        printError(
            "other users cannot enter {}, so their apps do not find the policy file; run: chmod go+x {}",
            result.closedFolder, result.closedFolder);
    const auto overridden = overriddenKeys(options, reading);
    if (!options.isJSON)
        printInstallation(result, overridden);
    json::object object{{"path", result.file.string()},
                        {"outcome", result.isChanged ? "installed" : "unchanged"},
                        {"isChanged", result.isChanged},
                        {"overridden", pathsByKey(overridden)},
                        {"findings", findingsJSON(findings)}};
    if (how.isWaiting)
        return finishWaiting(options, reading, how, std::move(object));
    if (options.isJSON)
        printJSON(std::move(object));
    return success;
}

ExitCode configClear(const Options& options)
{
    const auto removed = removePolicy(policyFiles(options));
    const auto policy =
        DevicePolicy::read(options.managedConfiguration, Platform::PropertyLists::WithPlaces::no);
    const auto fragments = policy.fragmentPaths();
    if (options.isJSON) {
        printJSON({{"removed", pathsJSON(removed)}, {"fragments", pathsJSON(fragments)}});
        return success;
    }
    if (removed.empty())
        print("No policy file to remove\n");
    for (const auto& path : removed)
        print("Removed {}\n", path);
    for (const auto& path : fragments)
        print("{} stays in effect; to clear the whole configuration, remove it too\n", path);
    return success;
}

} // namespace Qvctl
