// From the policy file to the snapshot that other processes read.

#include "Core/Constants.h"
#include "Core/ManagedKeys.h"
#include "Platform/ASCII.h"
#include "Platform/Error.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Storage/PrivateFiles.h"
#include "Tools/qvctl/DevicePolicy.h"
#include "Tools/qvctl/Doctor/Deadline.h"
#include "Tools/qvctl/Doctor/Examination.h"
#include "Tools/qvctl/Doctor/SecondProcess.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/LintFindings.h"

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

/// A clause as a sentence.
std::string sentence(std::string clause)
{
    if (!clause.empty())
        clause[0] = Platform::upperCaseASCII(clause[0]);
    return clause.ends_with('.') ? clause : clause + ".";
}

/// Why the file is not taken, as a sentence.
std::string refusalOf(const PolicyFileReading& reading)
{
    return reading.position ? reading.diagnostic() + "."
                            : fmt::format("{} {}.", reading.path.string(), reading.reason);
}

void checkPermissions(CheckReport& report, const PolicyFileReading& reading,
                      const std::vector<PolicyFileReading>& passedOver)
{
    if (passedOver.empty()) {
        report.ok("policy.permissions",
                  fmt::format("Only root and this user can change {}.", reading.path.string()));
        return;
    }
    // The reason is about the file unless it names a folder, and ends with the mend.
    const PolicyFileReading& untrusted = passedOver.front();
    const std::string file = untrusted.path.string();
    const auto colon = std::min(untrusted.reason.find(": "), untrusted.reason.size());
    const std::string reason = untrusted.reason.substr(0, colon);
    const std::string found = reason.starts_with('/')
                                  ? fmt::format("{}, so the app does not believe {}.", reason, file)
                                  : fmt::format("{} {}, so the app does not believe it.", file, reason);
    const std::string fix =
        colon < untrusted.reason.size() ? sentence(untrusted.reason.substr(colon + 2)) : "";
    if (reading.state == PolicyFileReading::State::missing)
        report.failed("policy.permissions", found, fix);
    else
        report.warning("policy.permissions",
                       fmt::format("{} It takes {} instead.", found, reading.path.string()), fix);
}

void checkValues(CheckReport& report, const PolicyFileReading& reading)
{
    const std::vector<LintFinding> all = findProblems(reading.document, false);
    const auto worst =
        std::min_element(all.begin(), all.end(), [](const LintFinding& left, const LintFinding& right) {
            return left.severity < right.severity;
        });
    if (worst == all.end()) {
        report.ok("policy.values", "Every value is taken as it is written.");
        return;
    }
    const std::string place = worst->position ? fmt::format("Line {}: ", worst->position->line) : "";
    const std::string index = worst->index ? fmt::format("[{}]", *worst->index) : "";
    const std::string others = all.size() > 1 ? fmt::format(" (and {} more)", all.size() - 1) : "";
    const std::string found =
        fmt::format("{}{}{} {}; {}{}.", place, worst->key, index, worst->problem, worst->effect, others);
    const std::string lint = fmt::format("See qvctl config lint {}", reading.path.string());
    const std::string fix = worst->fix.empty() ? lint : sentence(worst->fix) + " " + lint;
    if (worst->severity == Severity::error)
        report.failed("policy.values", found, fix);
    else if (worst->severity == Severity::warning)
        report.warning("policy.values", found, fix);
    else
        report.ok("policy.values", found);
}

/// What the folder of the state is, in a sentence, if it is none that the application can work in.
struct FolderProblem {
    std::string found;
    std::string fix;
};

std::optional<FolderProblem> folderProblem(const std::filesystem::path& folder, const struct stat& status)
{
    const std::string path = folder.string();
    if (!S_ISDIR(status.st_mode))
        return FolderProblem{path + " is not a folder.", "Move it away; the app makes the folder."};
    if (status.st_uid != ::geteuid() && ::geteuid() != 0)
        return FolderProblem{
            fmt::format("{} belongs to user {}, so the app does not use it.", path, status.st_uid),
            "Set XDG_DATA_HOME to a folder that belongs to this user alone."};
    try {
        if (status.st_uid == ::geteuid())
            Platform::Storage::requirePrivateWay(folder, "XDG_DATA_HOME");
    } catch (const std::runtime_error& error) {
        return FolderProblem{fmt::format("The app does not use {}: {}.", path, error.what()),
                             "Take the permission to write from others (chmod go-w)."};
    }
    if (::faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0)
        return FolderProblem{
            fmt::format("{} cannot be used: {}; it belongs to user {} (mode {:04o}), and this is user {}.",
                        path, Platform::errorText(errno), status.st_uid, status.st_mode & 07777U,
                        ::geteuid()),
            "Run this as the user of the app, or give the folder back to its user (chown, chmod 700)."};
    return std::nullopt;
}

/// Where its own path breaks off: the thing that is there and is no folder, or may not be looked into.
std::filesystem::path obstacle(std::filesystem::path path)
{
    struct stat status {};
    while (path.has_relative_path() && ::stat(path.c_str(), &status) != 0)
        path = path.parent_path();
    return path;
}

/// Whether there is a folder to look into.
bool checkStateFolder(Examination& examination)
{
    CheckReport& report = examination.report;
    try {
        examination.paths = DevicePaths::fromEnvironment(examination.options.managedConfiguration);
    } catch (const std::runtime_error&) {
        report.failed("state.folder", "This user has no home folder, so the app has no place for its state.",
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
                fmt::format("{} is not there; the first start of the app makes it.", folder.string()));
        else
            report.failed("state.folder",
                          fmt::format("{} cannot be reached beyond {}: {}.", folder.string(),
                                      obstacle(folder).string(), Platform::errorText(error)),
                          "Run this as the user of the app, or put the folders above it right.");
        return false;
    }
    if (const auto problem = folderProblem(folder, status)) {
        report.failed("state.folder", problem->found, problem->fix);
        return false;
    }
    if (const unsigned mode = status.st_mode & 07777U; (mode & (S_IRWXG | S_IRWXO)) != 0)
        report.warning("state.folder",
                       fmt::format("{} is open to other users (mode {:04o}).", folder.string(), mode),
                       fmt::format("Close it: chmod 700 {}", folder.string()));
    else
        report.ok("state.folder", fmt::format("{} is there and this user's alone.", folder.string()));
    return true;
}

/// A process of its own, as the single-sign-on extension is one: it starts with nothing open, no lock that it
/// meets can hold us up, and a store that breaks its reader does not break us.
ProcessOutcome readSuiteElsewhere(const Examination& examination)
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
    if (report.isPrevented("suite.readable",
                           {"policy.file", "policy.permissions", "policy.syntax", "app.running"},
                           "No snapshot is stored yet"))
        return;
    report.failed("suite.readable",
                  isRunning ? "The app runs and has stored no snapshot." : "No snapshot is stored.",
                  "Restart the app; its log says what keeps it from storing one.");
}

void checkSuite(Examination& examination)
{
    constexpr const char* fix = "Restart the app: it moves a damaged store aside and begins a new one.";
    CheckReport& report = examination.report;
    const auto file = examination.paths->suite(Core::Constants::appGroupSuiteName);
    const ProcessOutcome outcome = readSuiteElsewhere(examination);
    if (!outcome.hasEnded) {
        report.failed("suite.readable",
                      fmt::format("Another process has not read {} within {}.", file.string(),
                                  durationText(examination.limits.timeout)),
                      "See which process holds it: fuser -v " + file.string());
        return;
    }
    InspectedStore suite(file);
    const auto bytes = suite.values.data(Core::Constants::SnapshotKeys::configSnapshot);
    if (outcome.exitCode == success && bytes) {
        const auto& snapshot = examination.snapshot.emplace(Core::ConfigurationSnapshot::decode(*bytes));
        report.ok("suite.readable", fmt::format("Another process reads version {}, applied {}.",
                                                snapshot.configVersion, timeText(snapshot.lastUpdated)));
    } else if (!suite.problem().empty()) {
        report.failed("suite.readable", suite.problem() + ".", fix);
    } else if (outcome.exitCode == noInput) {
        reportMissingSnapshot(report, examination.application.has_value());
    } else {
        report.failed("suite.readable",
                      fmt::format("Another process cannot read it: {}", lastLine(outcome.output) + "."),
                      "Restart the app: it stores a new snapshot.");
    }
}

/// The keys whose stored value is not that of the policy.
std::string differences(const Core::ConfigurationSnapshot& snapshot, const Core::ValidatedConfig& policy)
{
    std::string keys;
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        const auto stored = Core::valuesOf(key, snapshot.config);
        const auto configured = Core::valuesOf(key, policy);
        if (!std::equal(stored.begin(), stored.end(), configured.begin(), configured.end()))
            keys.append(keys.empty() ? "" : ", ").append(key.name);
    }
    return keys;
}

void checkCurrency(Examination& examination)
{
    CheckReport& report = examination.report;
    const bool isPolicyKnown = examination.policy.has_value();
    if (report.isPrevented("suite.current",
                           {"suite.readable", "policy.file", "policy.permissions", "policy.syntax"},
                           isPolicyKnown ? "" : "There is no good policy to compare with"))
        return;
    const std::string keys = differences(*examination.snapshot, *examination.policy);
    if (keys.empty()) {
        report.ok("suite.current", "The stored snapshot is that of the policy in force.");
        return;
    }
    const std::string found = fmt::format("The policy has another {} than the stored snapshot", keys);
    if (!report.isPrevented("suite.current", {"app.running"}, found))
        report.failed("suite.current", found + ".",
                      "Look again in a second; if it stays, restart the app and read its log.");
}

} // namespace

void examinePolicy(Examination& examination)
{
    CheckReport& report = examination.report;
    const auto policy = DevicePolicy::read(examination.options.managedConfiguration, WithPlaces::yes);
    const PolicyFileReading& reading = policy.reading;
    const auto& passedOver = policy.untrusted;
    if (reading.state == PolicyFileReading::State::missing && passedOver.empty())
        report.failed("policy.file", sentence(policy.absence()),
                      "Have device management deliver it, or install one: qvctl config set FILE");
    else if (reading.state == PolicyFileReading::State::unreadable)
        report.failed(
            "policy.file", refusalOf(reading),
            "Let it be a plain file that the user of the app may read (chmod a+r), in folders that this "
            "user may search (chmod a+x).");
    else if (!policy.ignored.empty())
        report.warning("policy.file", sentence(policy.ignoredText()),
                       "Remove one of them: qvctl config set FILE leaves only the file that it installs.");
    else
        report.ok("policy.file", fmt::format("{} is there.", policy.bestReading().path.string()));

    if (!report.isPrevented("policy.permissions", {"policy.file"}))
        checkPermissions(report, reading, passedOver);

    if (!report.isPrevented("policy.syntax", {"policy.file", "policy.permissions"})) {
        if (reading.state == PolicyFileReading::State::good)
            report.ok("policy.syntax",
                      fmt::format("Its form is good: {}.", formatName(reading.document.format)));
        else
            report.failed("policy.syntax", refusalOf(reading),
                          "Write it anew; the app keeps the last good configuration until then.");
    }
    if (report.isPrevented("policy.values", {"policy.syntax"}))
        return;
    examination.policy = Core::validateManagedConfiguration(*reading.document.root.dictionary());
    checkValues(report, reading);
}

void examineState(Examination& examination)
{
    CheckReport& report = examination.report;
    const bool isFolderThere = checkStateFolder(examination);
    if (report.isPrevented("app.running", {"state.folder"}))
        return;
    const auto lock = examination.paths->instanceLock();
    const auto holder = isFolderThere ? InstanceLock::holder(lock) : std::nullopt;
    if (holder && !holder->isApplication()) {
        report.failed("app.running",
                      fmt::format("The app does not run: another program, {}, process {}, holds {}.",
                                  holder->program, *holder->process, lock.string()),
                      "End that program, then start the app as its user: quorvane-mdm");
        return;
    }
    examination.application = holder;
    if (examination.application && examination.application->process)
        report.ok("app.running",
                  fmt::format("The app runs as process {}.", *examination.application->process));
    else if (examination.application)
        report.ok("app.running", "The app runs in another container or on another machine.");
    else
        report.failed("app.running",
                      isFolderThere ? "The app does not run: no change of the policy and no push comes in."
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
