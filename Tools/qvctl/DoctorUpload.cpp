// What the backend said to the device token, as far as the application's own journal can tell.

#include "Platform/ASCII.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/JournalReader.h"
#include "Tools/qvctl/Doctor.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace Qvctl {

namespace {

using namespace Platform::Linux;

constexpr const char* uploadCheck = "upload.last";
constexpr const char* logHint = "The log of the app tells more: journalctl -t quorvane-mdm";

// The lines that `RemoteNotificationHandler` and `APIClient` write.
constexpr std::string_view uploadedText = "Device token uploaded to backend";
constexpr std::string_view failedText = "Device token upload failed";
constexpr std::string_view skippedText = "Skipping token upload";
constexpr std::string_view statusText = "statusCode=";

bool isAbout(const JournalEntry& line, std::string_view text)
{
    return line.category == "notifications" && line.text.starts_with(text);
}

/// The last outcome that is written readably; null when there is none.
const JournalEntry* readableOutcome(const std::vector<JournalEntry>& lines)
{
    const auto found = std::find_if(lines.begin(), lines.end(), [](const JournalEntry& line) {
        return isAbout(line, uploadedText) || isAbout(line, failedText) || isAbout(line, skippedText);
    });
    return found != lines.end() ? &*found : nullptr;
}

/// " with status 503", from the line of the client next to that of the upload. The rest of either may quote
/// what nobody else is to see.
std::string statusBefore(const std::vector<JournalEntry>& lines, const JournalEntry& outcome)
{
    for (const JournalEntry* line = &outcome + 1; line < lines.data() + lines.size(); ++line) {
        if (isAbout(*line, uploadedText) || isAbout(*line, failedText))
            break;
        const auto start = line->category == "network" ? line->text.rfind(statusText) : std::string::npos;
        if (start == std::string::npos)
            continue;
        const std::string rest = line->text.substr(start + statusText.size());
        const auto end = std::find_if_not(rest.begin(), rest.end(), Platform::isASCIIDigit);
        return " with status " + std::string(rest.begin(), end);
    }
    return {};
}

void tellReadable(Examination& examination, const std::vector<JournalEntry>& lines,
                  const JournalEntry& outcome)
{
    Findings& findings = examination.findings;
    const std::string time = timeText(outcome.time);
    if (isAbout(outcome, uploadedText)) {
        findings.ok(uploadCheck, fmt::format("The backend took the device token on {}.", time));
    } else if (isAbout(outcome, skippedText)) {
        findings.warning(uploadCheck, fmt::format("No token was uploaded on {}: no device_id then.", time),
                         "Restart the app once the configuration has a device_id.");
    } else {
        const std::string found =
            fmt::format("The upload of {} failed{}", time, statusBefore(lines, outcome));
        if (!findings.isPrevented(uploadCheck,
                                  {"backend.address", "backend.connect", "backend.tls", "backend.certificate",
                                   "backend.name", "backend.dates"},
                                  found))
            findings.failed(uploadCheck, found + ".",
                            fmt::format("Restart the app to try again. {}", logHint));
    }
}

/// Of private lines the text is not kept, but what kind they are. Only a failed request has lines of the
/// category "network": a warning when the backend answered with an error, an error when there was no answer.
void tellPrivate(Findings& findings, const std::vector<JournalEntry>& lines)
{
    constexpr const char* reveal =
        "To have the texts kept, start the app with QUORVANE_LOG_PRIVATE_DATA=show.";
    const auto failure = std::find_if(lines.begin(), lines.end(),
                                      [](const JournalEntry& line) { return line.category == "network"; });
    if (failure != lines.end())
        findings.warning(
            uploadCheck,
            fmt::format("On {} a request {}; the lines are private, so nothing tells whether a "
                        "later one got through.",
                        timeText(failure->time),
                        failure->level == "error" ? "got no answer" : "was answered with an error"),
            reveal);
    else
        findings.skipped(
            uploadCheck,
            "No request of the app failed as far as the journal goes back; its lines are private, "
            "so it does not tell which succeeded.",
            reveal);
}

/// What the process wrote last; newest first. Without one, any that the user may read of.
std::vector<JournalEntry> newestEntries(std::optional<pid_t> process)
{
    constexpr std::uint64_t entryCount = 1000;
    JournalReader reader({.identifier = std::string(journalIdentifier),
                          .user = ::geteuid(),
                          .process = process,
                          .limit = entryCount});
    std::vector<JournalEntry> entries;
    while (auto entry = reader.next())
        entries.push_back(*std::move(entry));
    std::reverse(entries.begin(), entries.end());
    return entries;
}

} // namespace

void examineUpload(Examination& examination)
{
    Findings& findings = examination.findings;
    if (findings.isPrevented(uploadCheck, {"state.folder", "push.registration"}))
        return;
    if (examination.snapshot && !examination.snapshot->config.deviceId) {
        if (!findings.isPrevented(uploadCheck, {"policy.values"}, "No token is uploaded without a device_id"))
            findings.warning(uploadCheck, "No token is uploaded: the configuration has no device_id.",
                             "Set device_id.");
        return;
    }
    try {
        const auto lines =
            newestEntries(examination.application ? examination.application->process : std::nullopt);
        if (lines.empty())
            findings.skipped(uploadCheck, "The journal has no line of the app that this user may read.");
        else if (const JournalEntry* outcome = readableOutcome(lines))
            tellReadable(examination, lines, *outcome);
        else
            tellPrivate(findings, lines);
    } catch (const JournalUnavailable& error) {
        findings.skipped(uploadCheck, error.what());
    } catch (const std::system_error& error) {
        findings.skipped(uploadCheck, fmt::format("The journal cannot be asked: {}.", error.what()));
    }
}

} // namespace Qvctl
