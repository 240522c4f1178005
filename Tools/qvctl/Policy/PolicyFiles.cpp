#include "Tools/qvctl/Policy/PolicyFiles.h"

#include "Platform/Storage/FileDescriptor.h"
#include "Tools/qvctl/Output.h"

#include <algorithm>
#include <fcntl.h>
#include <initializer_list>
#include <iterator>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Qvctl::Policy {

using namespace Platform::PropertyLists;
using namespace Platform::Storage;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;

namespace {

using State = PolicyFileReading::State;

/// Most reasons are predicates ("is empty"), some are clauses ("a key appears twice in one dictionary").
bool isPredicate(std::string_view reason)
{
    const std::initializer_list<std::string_view> verbs{"is ", "holds ", "contains ", "cannot "};
    return std::any_of(verbs.begin(), verbs.end(),
                       [&](std::string_view verb) { return reason.starts_with(verb); });
}

LintFinding unusableFile(const PolicyFileReading& reading, const char* subject, const char* effect)
{
    const bool isUntrusted = reading.state == State::untrusted;
    return {.severity = Severity::error,
            .key = subject,
            .index = {},
            .position = reading.position,
            .problem = (isUntrusted                   ? "is not trusted: "
                        : isPredicate(reading.reason) ? ""
                                                      : "is invalid: ") +
                       reading.reason,
            .effect = effect,
            .fix = "",
            .file = reading.path};
}

/// The problems of all values, each in the file that it comes from.
std::vector<LintFinding> effectiveFindings(const DevicePolicy& policy, bool isRevealing)
{
    std::vector<LintFinding> findings = findProblems(policy.reading.document, isRevealing);
    for (LintFinding& finding : findings) {
        const auto sources = policy.sourcesOf(finding.key);
        finding.file = sources.empty() ? policy.reading.path : sources.back();
    }
    return findings;
}

} // namespace

DevicePolicy readDevicePolicy(const Options& options)
{
    auto policy = DevicePolicy::read(options.managedConfiguration, WithPlaces::yes);
    if (policy.bestReading().state == State::missing)
        throw CommandError(noInput, "no policy file: " + policy.absence());
    if (!policy.ignored.empty())
        printError("{}", policy.ignoredText());
    return policy;
}

std::vector<LintFinding> findingsOf(const PolicyFileReading& reading, bool isRevealing)
{
    if (reading.state != State::good)
        return {unusableFile(reading, wholeFile, "the app keeps the last valid configuration")};
    std::vector<LintFinding> findings = findProblems(reading.document, isRevealing);
    for (LintFinding& finding : findings)
        finding.file = reading.path;
    return findings;
}

std::vector<LintFinding> findingsOf(const DevicePolicy& policy, bool isRevealing)
{
    std::vector<LintFinding> findings;
    const auto add = [&findings](std::vector<LintFinding> more) {
        findings.insert(findings.end(), std::make_move_iterator(more.begin()),
                        std::make_move_iterator(more.end()));
    };
    for (const PolicyFileReading& file : policy.untrusted)
        findings.push_back(unusableFile(file, wholeFile, "it counts as missing"));
    if (policy.reading.state == State::good) {
        add(effectiveFindings(policy, isRevealing));
        return findings;
    }
    if (policy.folderProblem)
        findings.push_back(unusableFile(*policy.folderProblem, fragmentFolder,
                                        "the app keeps the last valid content of its fragments"));
    if (policy.file)
        add(findingsOf(*policy.file, isRevealing));
    for (const PolicyFileReading& fragment : policy.fragments) {
        if (fragment.state == State::good)
            add(findingsOf(fragment, isRevealing));
        else
            findings.push_back(
                unusableFile(fragment, wholeFile, "the app keeps the last valid content of this file"));
    }
    return findings;
}

PolicyFileReading readNamedPolicy(const std::string& name)
{
    if (name == "-")
        return readPolicyStream(STDIN_FILENO, name, WithPlaces::yes);
    struct stat status {};
    const bool isStream =
        ::stat(name.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
    // Unlike the app, this waits for the writer of a pipe.
    const FileDescriptor stream(isStream ? ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY) : -1);
    return stream ? readPolicyStream(stream.get(), name, WithPlaces::yes)
                  : readPolicyFile(name, TrustCheck::skipped, WithPlaces::yes);
}

ExitCode failUnusable(const Options& options, const PolicyFileReading& reading)
{
    const std::string reason = reading.state == PolicyFileReading::State::missing
                                   ? reading.path.string() + ": no such file"
                                   : reading.diagnostic();
    const bool isAbsent = reading.state == PolicyFileReading::State::missing ||
                          reading.state == PolicyFileReading::State::unreadable;
    return fail(options, isAbsent ? noInput : configuration, reason, {{"path", reading.path.string()}});
}

} // namespace Qvctl::Policy
