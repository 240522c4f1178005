// The verbs that work on a policy file: check it, install it, remove the one in force.

#include "Platform/Linux/DevicePaths.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/LintOutput.h"
#include "Tools/qvctl/Policy/PolicyFiles.h"
#include "Tools/qvctl/Policy/PolicyInstaller.h"

#include <fmt/format.h>

#include <algorithm>

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

/// A file that does not parse has one finding: where and why.
std::vector<LintFinding> findingsOf(const PolicyFileReading& reading, bool isRevealing)
{
    if (reading.state == PolicyFileReading::State::good)
        return findProblems(reading.document, isRevealing);
    return {{.severity = Severity::error,
             .key = "the file",
             .index = {},
             .position = reading.position,
             .problem = fmt::format("is not taken: {}", reading.reason),
             .effect = "the last good configuration stays in force",
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

} // namespace

ExitCode configLint(const Options& options, const std::vector<std::string>& files)
{
    ExitCode worst = success;
    for (const std::string& file : files)
        worst = std::max(worst, lintFile(options, file));
    return worst;
}

ExitCode configSet(const Options& options, const std::string& file, bool isForced)
{
    const PolicyFileReading reading = readNamedPolicy(file);
    if (isAbsent(reading))
        return failUnusable(options, reading);
    const auto findings = findingsOf(reading, options.isRevealing);
    if (!options.isJSON)
        reportFindings(file, findings);
    const bool isParsed = reading.state == PolicyFileReading::State::good;
    if (hasErrors(findings) && !(isParsed && isForced))
        return fail(options, configuration,
                    fmt::format("{} was not installed: {}", file,
                                isParsed ? "correct its errors, or install it as it is with --force"
                                         : "it cannot be parsed"),
                    {{"path", file}, {"outcome", "refused"}, {"findings", findingsJSON(findings)}});

    const auto places = DevicePaths::policyCandidates(options.managedConfiguration);
    const Installation result = installPolicy(places, reading.bytes, reading.document.format);
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
    const auto paths = DevicePaths::policyCandidates(options.managedConfiguration);
    const auto removed = removePolicy(paths);
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

} // namespace Qvctl
