// Checks of the policy file, the state folder, the app and the stored snapshot.

#include "Core/Constants.h"
#include "Core/ManagedKeys.h"
#include "Platform/ASCII.h"
#include "Platform/Error.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Storage/PrivateFiles.h"
#include "Tools/qvctl/Deadline.h"
#include "Tools/qvctl/DevicePolicy.h"
#include "Tools/qvctl/Doctor/Examination.h"
#include "Tools/qvctl/Doctor/SecondProcess.h"
#include "Tools/qvctl/ManagedValues.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/LintFindings.h"
#include "Tools/qvctl/Policy/PolicyFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace Qvctl::Doctor {

namespace {

using namespace Qvctl::Policy;
using namespace Platform::PropertyLists;
using namespace Platform::Storage;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;

/// Turns a clause into a sentence.
std::string sentence(std::string clause)
{
    if (!clause.empty())
        clause[0] = Platform::upperCaseASCII(clause[0]);
    return clause.ends_with('.') ? clause : clause + ".";
}

/// Why the file cannot be used, as a sentence.
std::string problemOf(const PolicyFileReading& reading)
{
    return reading.position ? reading.diagnostic() + "."
                            : fmt::format("{} {}.", reading.path.string(), reading.reason);
}

void checkFile(CheckReport& report, const DevicePolicy& policy)
{
    const bool hasFragments = !policy.fragments.empty() || policy.folderProblem;
    if (policy.bestReading().state == PolicyFileReading::State::missing)
        report.failed("policy.file", sentence(policy.absence()),
                      "Deliver it with device management, or install it: qvctl config set FILE");
    else if (!policy.file && policy.untrusted.empty() && hasFragments)
        report.ok("policy.file", fmt::format("There is no policy file; all values come from {}.",
                                             policy.places.fragments.string()));
    else if (policy.file && policy.file->state == PolicyFileReading::State::unreadable)
        report.failed(
            "policy.file", problemOf(*policy.file),
            "Make it a regular file that the app's user can read (chmod a+r), in folders that this user can "
            "enter (chmod a+x).");
    else if (!policy.ignored.empty())
        report.warning("policy.file", sentence(policy.ignoredText()),
                       "Remove one of them; qvctl config set FILE keeps only the file that it installs.");
    else
        report.ok(
            "policy.file",
            fmt::format("{} exists.", (policy.file ? *policy.file : policy.untrusted.front()).path.string()));
}

void checkPermissions(CheckReport& report, const DevicePolicy& policy)
{
    if (policy.untrusted.empty()) {
        report.ok("policy.permissions",
                  fmt::format("Only root and this user can change {}.",
                              (policy.file ? policy.file->path : policy.places.fragments).string()));
        return;
    }
    // The reason is "PREDICATE: FIX" for the file itself, or "FOLDER PREDICATE: FIX".
    const PolicyFileReading& untrusted = policy.untrusted.front();
    const std::string file = untrusted.path.string();
    const auto colon = std::min(untrusted.reason.find(": "), untrusted.reason.size());
    const std::string reason = untrusted.reason.substr(0, colon);
    const std::string found = reason.starts_with('/')
                                  ? fmt::format("{}, so the app does not trust {}.", reason, file)
                                  : fmt::format("{} {}, so the app does not trust it.", file, reason);
    const std::string fix =
        colon < untrusted.reason.size() ? sentence(untrusted.reason.substr(colon + 2)) : "";
    if (!policy.file)
        report.failed("policy.permissions", found, fix);
    else
        report.warning("policy.permissions",
                       fmt::format("{} It uses {} instead.", found, policy.file->path.string()), fix);
}

void checkSyntax(CheckReport& report, const DevicePolicy& policy)
{
    if (!policy.file)
        report.skipped("policy.syntax", "There are only fragments.");
    else if (policy.file->state == PolicyFileReading::State::good)
        report.ok("policy.syntax", fmt::format("Valid {}.", formatName(policy.file->document.format)));
    else
        report.failed("policy.syntax", problemOf(*policy.file),
                      "Correct the file; until then the app keeps the last valid configuration.");
}

/// Lists the file of each managed key.
std::string sourcesText(const DevicePolicy& policy)
{
    std::string text;
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        if (const auto sources = policy.sourcesOf(key.name); !sources.empty())
            text += fmt::format("{}{} comes from {}", text.empty() ? "" : "; ", key.name,
                                sourceText(fileNames(sources)));
    }
    return text.empty() ? "The fragments set no managed key" : text;
}

/// Adds no result if there are no fragments.
void checkFragments(CheckReport& report, const DevicePolicy& policy)
{
    constexpr const char* identifier = "policy.fragments";
    if (policy.fragments.empty() && !policy.folderProblem)
        return;
    const auto problems = policy.unusable();
    const auto problem =
        std::find_if(problems.begin(), problems.end(), [&](const PolicyFileReading* reading) {
            return !policy.file || reading != &*policy.file;
        });
    if (problem == problems.end())
        report.ok(identifier, sourcesText(policy) + ".");
    else
        report.failed(
            identifier, problemOf(**problem),
            "Correct or remove it; until then the app keeps its last valid content. An app that was "
            "started since applies no change.");
}

void checkValues(CheckReport& report, const DevicePolicy& policy)
{
    const std::vector<LintFinding> all = findingsOf(policy, false);
    const auto worst =
        std::min_element(all.begin(), all.end(), [](const LintFinding& left, const LintFinding& right) {
            return left.severity < right.severity;
        });
    if (worst == all.end()) {
        report.ok("policy.values", "Every value is used as written.");
        return;
    }
    const bool hasFragments = !policy.fragments.empty();
    const std::string file = hasFragments ? worst->file.string() : "";
    const std::string line = worst->position ? fmt::format("Line {}{}{}: ", worst->position->line,
                                                           hasFragments ? " of " : "", file)
                             : hasFragments  ? file + ": "
                                             : "";
    const std::string index = worst->index ? fmt::format("[{}]", *worst->index) : "";
    const std::string others = all.size() > 1 ? fmt::format(" (and {} more)", all.size() - 1) : "";
    const std::string subject = worst->key == wholeFile ? worst->file.string() : worst->key;
    const std::string found =
        fmt::format("{}{}{} {}; {}{}.", line, subject, index, worst->problem, worst->effect, others);
    const std::string lint = fmt::format("For details, run: qvctl config lint{}{}", hasFragments ? "" : " ",
                                         hasFragments ? "" : worst->file.string());
    const std::string fix = worst->fix.empty() ? lint : sentence(worst->fix) + " " + lint;
    if (worst->severity == Severity::error)
        report.failed("policy.values", found, fix);
    else if (worst->severity == Severity::warning)
        report.warning("policy.values", found, fix);
    else
        report.ok("policy.values", found);
}

/// Why the app cannot use the state folder.
struct FolderProblem {
    std::string found;
    std::string fix;
};

std::optional<FolderProblem> folderProblem(const std::filesystem::path& folder, const struct stat& status)
{
    const std::string path = folder.string();
    if (!S_ISDIR(status.st_mode))
        return FolderProblem{path + " is not a folder.", "Move it away; the app creates the folder."};
    if (status.st_uid != ::geteuid() && ::geteuid() != 0)
        return FolderProblem{
            fmt::format("{} belongs to user {}, so the app does not use it.", path, status.st_uid),
            "Set XDG_DATA_HOME to a folder that belongs to this user alone."};
    try {
        if (status.st_uid == ::geteuid())
            Platform::Storage::requirePrivateWay(folder, "XDG_DATA_HOME");
    } catch (const std::runtime_error& error) {
        return FolderProblem{fmt::format("The app does not use {}: {}.", path, error.what()),
                             "Remove write access for others (chmod go-w)."};
    }
    if (::faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0)
        return FolderProblem{
            fmt::format(
                "{} cannot be used: {}; it belongs to user {} (mode {:04o}), this command runs as user {}.",
                path, Platform::errorText(errno), status.st_uid, status.st_mode & 07777U, ::geteuid()),
            "Run this command as the app's user, or restore the folder's owner and mode (chown, chmod 700)."};
    return std::nullopt;
}

/// The longest part of `path` that exists: a file, or a folder that cannot be entered.
std::filesystem::path existingPart(std::filesystem::path path)
{
    struct stat status {};
    while (path.has_relative_path() && ::stat(path.c_str(), &status) != 0)
        path = path.parent_path();
    return path;
}

/// Returns whether the folder exists and can be used.
bool checkStateFolder(Examination& examination)
{
    CheckReport& report = examination.report;
    try {
        examination.paths = DevicePaths::fromEnvironment(examination.options.managedConfiguration);
    } catch (const std::runtime_error&) {
        report.failed("state.folder", "This user has no home folder, so the app cannot store its state.",
                      "Set HOME or XDG_DATA_HOME to an absolute path.");
        return false;
    }
    const auto& folder = examination.paths->stateFolder;
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) {
        const int error = errno;
        if (error == ENOENT)
            report.skipped(
                "state.folder",
                fmt::format("{} does not exist yet; the app creates it on first launch.", folder.string()));
        else
            report.failed("state.folder",
                          fmt::format("{} cannot be reached past {}: {}.", folder.string(),
                                      existingPart(folder).string(), Platform::errorText(error)),
                          "Run this command as the app's user, or fix the folders above it.");
        return false;
    }
    if (const auto problem = folderProblem(folder, status)) {
        report.failed("state.folder", problem->found, problem->fix);
        return false;
    }
    if (const unsigned mode = status.st_mode & 07777U; (mode & (S_IRWXG | S_IRWXO)) != 0)
        report.warning("state.folder",
                       fmt::format("{} is open to other users (mode {:04o}).", folder.string(), mode),
                       fmt::format("Run: chmod 700 {}", folder.string()));
    else
        report.ok("state.folder", fmt::format("Only this user can access {}.", folder.string()));
    return true;
}

/// Reads the suite in a separate process, as the single-sign-on extension does. A lock or a damaged store
/// cannot block or crash this one.
ProcessOutcome readSuiteInChild(const Examination& examination)
{
    return runSecondProcess(thisProgram, {"snapshot"}, examination.limits.timeout);
}

std::string lastLine(std::string text)
{
    while (text.ends_with('\n'))
        text.pop_back();
    text = text.substr(text.rfind('\n') + 1);
    constexpr std::string_view prefix = "qvctl: ";
    return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

void reportMissingSnapshot(CheckReport& report, bool isRunning)
{
    if (report.isPrevented(
            "suite.readable",
            {"policy.file", "policy.permissions", "policy.syntax", "policy.fragments", "app.running"},
            "No snapshot is stored yet"))
        return;
    report.failed("suite.readable",
                  isRunning ? "The app is running but has not stored a snapshot." : "No snapshot is stored.",
                  "Restart the app; its log shows why it stored none: qvctl log");
}

void checkSuite(Examination& examination)
{
    constexpr const char* fix = "Restart the app: it moves a damaged store aside and creates a new one.";
    CheckReport& report = examination.report;
    const auto file = examination.paths->suite(Core::Constants::appGroupSuiteName);
    const ProcessOutcome outcome = readSuiteInChild(examination);
    if (!outcome.hasEnded) {
        report.failed("suite.readable",
                      fmt::format("Another process could not read {} within {}.", file.string(),
                                  durationText(examination.limits.timeout)),
                      "Find the process that locks it: fuser -v " + file.string());
        return;
    }
    InspectedStore suite(file);
    const auto bytes = suite.values.data(Core::Constants::SnapshotKeys::configSnapshot);
    if (outcome.exitCode == success && bytes) {
        const auto& snapshot = examination.snapshot.emplace(Core::ConfigurationSnapshot::decode(*bytes));
        report.ok("suite.readable", fmt::format("Another process can read version {}, applied {}.",
                                                snapshot.configVersion, timeText(snapshot.lastUpdated)));
    } else if (!suite.problem().empty()) {
        report.failed("suite.readable", suite.problem() + ".", fix);
    } else if (outcome.exitCode == noInput) {
        reportMissingSnapshot(report, examination.application.has_value());
    } else {
        report.failed("suite.readable",
                      fmt::format("Another process cannot read it: {}.", lastLine(outcome.output)),
                      "Restart the app: it stores a new snapshot.");
    }
}

void checkCurrency(Examination& examination)
{
    CheckReport& report = examination.report;
    const bool isPolicyKnown = examination.policy.has_value();
    if (report.isPrevented(
            "suite.current",
            {"suite.readable", "policy.file", "policy.permissions", "policy.syntax", "policy.fragments"},
            isPolicyKnown ? "" : "There is no valid policy file to compare with"))
        return;
    const std::string keys = differingKeys(examination.snapshot->config, *examination.policy);
    if (keys.empty()) {
        report.ok("suite.current", "The stored snapshot matches the policy file.");
        return;
    }
    const std::string found = fmt::format("The stored snapshot differs from the policy file in {}", keys);
    if (!report.isPrevented("suite.current", {"app.running"}, found))
        report.failed("suite.current", found + ".",
                      "Run this command again in a second; if they still differ, restart the app and check "
                      "its log: qvctl log");
}

} // namespace

void examinePolicy(Examination& examination)
{
    CheckReport& report = examination.report;
    const auto policy = DevicePolicy::read(examination.options.managedConfiguration, WithPlaces::yes);
    checkFile(report, policy);
    if (!report.isPrevented("policy.permissions", {"policy.file"}))
        checkPermissions(report, policy);
    if (!report.isPrevented("policy.syntax", {"policy.file", "policy.permissions"}))
        checkSyntax(report, policy);
    checkFragments(report, policy);
    if (report.isPrevented("policy.values", {"policy.syntax", "policy.fragments"}))
        return;
    examination.policy = Core::validateManagedConfiguration(*policy.reading.document.root.dictionary());
    checkValues(report, policy);
}

void examineState(Examination& examination)
{
    CheckReport& report = examination.report;
    const bool isFolderUsable = checkStateFolder(examination);
    if (report.isPrevented("app.running", {"state.folder"}))
        return;
    const auto lock = examination.paths->instanceLock();
    const auto holder = isFolderUsable ? InstanceLock::holder(lock) : std::nullopt;
    if (holder && !holder->isApplication()) {
        report.failed("app.running",
                      fmt::format("The app is not running: another program, {} (process {}), holds {}.",
                                  holder->program, *holder->process, lock.string()),
                      "Stop that program, then start the app as its user: quorvane-mdm");
        return;
    }
    examination.application = holder;
    if (examination.application && examination.application->isOutdated() == true)
        report.warning("app.running",
                       fmt::format("The app runs as process {}, but an older version: its program was "
                                   "replaced or removed since.",
                                   *examination.application->process),
                       "Close its window; without one, it restarts itself within seconds. If it does not, "
                       "end that process and start the app again.");
    else if (examination.application && examination.application->process)
        report.ok("app.running",
                  fmt::format("The app is running as process {}.", *examination.application->process));
    else if (examination.application)
        report.ok("app.running", "The app is running in another container or on another machine.");
    else
        report.failed("app.running",
                      isFolderUsable
                          ? "The app is not running, so it receives no policy changes and no pushes."
                          : "The app has never run for this user.",
                      "Start it as its user: quorvane-mdm");
}

void examineSuite(Examination& examination)
{
    if (!examination.report.isPrevented("suite.readable", {"state.folder"}))
        checkSuite(examination);
    checkCurrency(examination);
}

} // namespace Qvctl::Doctor
