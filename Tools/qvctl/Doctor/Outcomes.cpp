// Checks the last push and the last configuration error that the app has recorded.

#include "Tools/qvctl/Doctor/Examination.h"
#include "Tools/qvctl/LastOutcomes.h"

#include <fmt/format.h>

namespace Qvctl::Doctor {

namespace {

using Platform::Outcome;
using Kind = Outcome::Kind;

constexpr const char* pushCheck = "push.last";
constexpr const char* errorCheck = "policy.lastError";

void checkPush(CheckReport& report, const std::optional<Outcome>& push)
{
    constexpr const char* logFix = "The app's log names the reason: qvctl log --level error";
    if (!push) {
        report.skipped(pushCheck, "The app has not recorded any pushes.");
        return;
    }
    const std::string subject = fmt::format("The last push, {}on {},",
                                            push->kind == Kind::alert    ? "an alert "
                                            : push->kind == Kind::silent ? "a silent one "
                                                                         : "",
                                            timeText(push->time));
    if (push->result == Outcome::Result::succeeded)
        report.ok(pushCheck, subject + " was accepted.");
    else if (push->result == Outcome::Result::deferred)
        report.warning(pushCheck, subject + " could not be accepted; the sender should repeat it.", logFix);
    else if (push->kind == Kind::none)
        report.warning(pushCheck, subject + " was refused because its content could not be read.",
                       "Check that the backend encrypts for the current device token and sends a JSON object "
                       "of at most 4096 bytes.");
    else
        report.warning(pushCheck, subject + " was refused.", logFix);
}

void checkError(Examination& examination, const std::optional<Outcome>& error)
{
    CheckReport& report = examination.report;
    if (!error) {
        report.ok(errorCheck, "The app has not recorded any error of the configuration.");
        return;
    }
    const std::string found = fmt::format("The last error of the configuration was on {}: {}",
                                          timeText(error->time), configurationErrorClause(error->kind));
    if (report.isPrevented(errorCheck, {"policy.file", "policy.permissions", "policy.syntax"}, found))
        return;
    const auto& snapshot = examination.snapshot;
    const bool isStoredSince =
        snapshot && snapshot->lastUpdated.secondsSinceReferenceDate >= error->time.secondsSinceReferenceDate;
    if (error->kind == Kind::notStored && !isStoredSince)
        report.warning(errorCheck, found + ".",
                       "The app's log names the reason: qvctl log --level error. Then restart the app.");
    else
        report.ok(errorCheck, found + ". It has been corrected since.");
}

} // namespace

void examineOutcomes(Examination& examination)
{
    CheckReport& report = examination.report;
    const bool isPushPrevented = report.isPrevented(pushCheck, {"state.folder"});
    const bool isErrorPrevented = report.isPrevented(errorCheck, {"state.folder"});
    if (isPushPrevented || isErrorPrevented)
        return;
    const InspectedStore shell(examination.paths->shellState());
    const auto outcomes = Platform::storedOutcomes(shell.values);
    if (!shell.problem().empty()) {
        for (const char* check : {pushCheck, errorCheck})
            report.skipped(check, shell.problem() + ".");
        return;
    }
    checkPush(report, outcomeOf(outcomes, Outcome::Subject::push));
    checkError(examination, outcomeOf(outcomes, Outcome::Subject::configurationError));
}

} // namespace Qvctl::Doctor
