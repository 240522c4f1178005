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

/// A file that cannot be parsed has a single finding.
std::vector<LintFinding> findingsOf(const PolicyFileReading& reading, bool isRevealing)
{
    if (reading.state == PolicyFileReading::State::good)
        return findProblems(reading.document, isRevealing);
    // Most reasons are predicates ("is empty"), some are clauses ("a key appears twice in one dictionary").
    const bool isPredicate = reading.reason.starts_with("is ") || reading.reason.starts_with("holds ");
    return {{.severity = Severity::error,
             .key = wholeFile,
             .index = {},
             .position = reading.position,
             .problem = (isPredicate ? "" : "is invalid: ") + reading.reason,
             .effect = "the app keeps the last valid configuration",
             .fix = ""}};
}

ExitCode lintFile(const Options& options, const std::string& file)
{
    const PolicyFileReading reading = readNamedPolicy(file);
    if (isAbsent(reading))
        return failUnusable(options, reading);
    const auto findings = findingsOf(reading, options.isRevealing);
    if (options.isJSON)
        printJSON({{"path", file}, {"findings", findingsJSON(findings)}});
    else if (findings.empty())
        print("{}: {}\n", file, toned(Tone::good, "no problems found"));
    else
        printFindings(file, findings);
    return hasErrors(findings) ? configuration : success;
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
        reportFindings(file, findings);
    const bool isParsed = reading.state == PolicyFileReading::State::good;
    if (hasErrors(findings) && !(isParsed && how.isForced))
        return fail(options, configuration,
                    fmt::format("{} was not installed: {}", file,
                                isParsed ? "fix its errors, or install it anyway with --force"
                                         : "it cannot be parsed"),
                    {{"path", file}, {"outcome", "refused"}, {"findings", findingsJSON(findings)}});

    const auto candidates = DevicePaths::policyCandidates(options.managedConfiguration);
    const Installation result = installPolicy(candidates, reading.bytes, reading.document.format);
    if (!result.closedFolder.empty())
        printError(
            "other users cannot enter {}, so their apps do not find the policy file; run: chmod go+x {}",
            result.closedFolder, result.closedFolder);
    if (!options.isJSON)
        print("{}: {}\n", result.file, result.isChanged ? "changed" : "unchanged");
    json::object object{{"path", result.file.string()},
                        {"outcome", result.isChanged ? "installed" : "unchanged"},
                        {"isChanged", result.isChanged},
                        {"findings", findingsJSON(findings)}};
    if (how.isWaiting)
        return finishWaiting(options, reading, how, std::move(object));
    if (options.isJSON)
        printJSON(std::move(object));
    return success;
}

ExitCode configClear(const Options& options)
{
    const auto candidates = DevicePaths::policyCandidates(options.managedConfiguration);
    const auto removed = removePolicy(candidates);
    if (options.isJSON) {
        printJSON({{"removed", pathsJSON(removed)}});
    } else if (removed.empty()) {
        print("No policy file to remove\n");
    }
    for (const auto& path : removed) {
        if (!options.isJSON)
            print("Removed {}\n", path);
    }
    return success;
}

} // namespace Qvctl
