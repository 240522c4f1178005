// From the user's permission to the token that the backend sends to.

#include "Core/Constants.h"
#include "Platform/Linux/Bus/UnifiedPushDistributors.h"
#include "Platform/Linux/LocalPushService.h"
#include "Platform/Push/ShellState.h"
#include "Platform/Push/UnifiedPushRegistration.h"
#include "Tools/qvctl/Device.h"
#include "Tools/qvctl/Doctor.h"
#include "Tools/qvctl/SessionBusNames.h"

#include <fmt/format.h>

#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace Qvctl {

namespace {

using namespace Platform::Push;
using namespace Platform::Linux;
using Platform::AuthorizationStatus;

constexpr std::string_view serverName = "org.freedesktop.Notifications";

void checkPermission(Examination& examination, InspectedStore& shell)
{
    Findings& findings = examination.findings;
    const AuthorizationStatus status = ShellState(shell.values).authorizationStatus();
    if (!shell.problem().empty())
        findings.failed("notifications.permission", shell.problem() + ".",
                        "Restart the app: it moves a damaged store aside, and the user decides anew.");
    else if (status == AuthorizationStatus::denied)
        findings.failed(
            "notifications.permission", "The user does not allow notifications.",
            "The user can allow them in the settings that the app opens; for tests: qvctl privacy "
            "grant notifications");
    else if (status != AuthorizationStatus::notDetermined)
        findings.ok("notifications.permission", "The user allows notifications.");
    else if (!findings.isPrevented("notifications.permission", {"app.running"},
                                   "The user has not been asked yet"))
        findings.failed("notifications.permission", "The user has not been asked yet.",
                        "Open the window of the app, get started and answer the question.");
}

void checkServer(Findings& findings, const std::optional<SessionBusNames>& names)
{
    if (findings.isPrevented("notifications.server", {"bus.session"}))
        return;
    if (names->running.count(serverName) != 0)
        findings.ok("notifications.server", "A notification server runs.");
    else if (names->startable.count(serverName) != 0)
        findings.ok("notifications.server", "The session bus can start a notification server.");
    else
        findings.failed(
            "notifications.server",
            fmt::format("Nobody shows notifications on this desktop: {} has no owner.", serverName),
            "Install and start a notification server; the app alone can show banners only in its "
            "own window.");
}

/// Whether somebody listens at the socket. Connecting would take up the time of whoever does.
bool isListening(const std::filesystem::path& socketFile)
{
    // "Num RefCount Protocol Flags Type St Inode Path", see proc(5). The flag is that of a listening socket;
    // the path is the one that it was made at, before it was renamed into place.
    std::ifstream table("/proc/net/unix");
    for (std::string line; std::getline(table, line);) {
        if (line.find(" 00010000 ") != std::string::npos &&
            line.find(" " + socketFile.string()) != std::string::npos)
            return ::access(socketFile.c_str(), F_OK) == 0;
    }
    return false;
}

std::vector<std::string> distributorsAmong(const SessionBusNames& names)
{
    std::set<std::string> found;
    for (const auto* set : {&names.running, &names.startable}) {
        for (const std::string& name : *set) {
            if (name.starts_with(Bus::UnifiedPushDistributors::namePrefix))
                found.insert(name);
        }
    }
    return {found.begin(), found.end()};
}

/// The bus name that the environment chooses; empty: none.
std::string chosenDistributor()
{
    const char* suffix = std::getenv("UNIFIEDPUSH_DISTRIBUTOR");
    return suffix != nullptr && *suffix != '\0'
               ? std::string(Bus::UnifiedPushDistributors::namePrefix) + suffix
               : std::string();
}

void checkDistributor(Examination& examination, const std::optional<SessionBusNames>& names)
{
    Findings& findings = examination.findings;
    if (examination.paths && isListening(examination.paths->pushSocket)) {
        findings.ok("push.distributor", fmt::format("None is needed: the app takes pushes at {}.",
                                                    examination.paths->pushSocket.string()));
        return;
    }
    if (findings.isPrevented("push.distributor", {"bus.session"}))
        return;
    const auto distributors = distributorsAmong(*names);
    const std::string chosen = chosenDistributor();
    if (distributors.empty())
        findings.failed(
            "push.distributor", "There is no push distributor on the session bus.",
            "Install a UnifiedPush distributor and start it, or run the app with --push local for "
            "tests.");
    else if (!chosen.empty() && !names->isThere(chosen))
        findings.failed("push.distributor",
                        fmt::format("{}, which UNIFIEDPUSH_DISTRIBUTOR names, is not on the session bus, and "
                                    "the app takes no other; there is {}.",
                                    chosen, fmt::join(distributors, ", ")),
                        "Start it, or name another one.");
    else
        findings.ok("push.distributor", fmt::format("There is {}.", fmt::join(distributors, ", ")));
}

void checkRegistration(Examination& examination, const InspectedStore& shell,
                       const std::optional<SessionBusNames>& names)
{
    Findings& findings = examination.findings;
    InspectedStore standard(examination.paths->standardDefaults());
    const auto token = standard.values.text(Core::Constants::StorageKeys::remoteNotificationDeviceToken);
    if (!standard.problem().empty()) {
        findings.failed("push.registration", standard.problem() + ".",
                        "Restart the app: it moves a damaged store aside and registers anew.");
        return;
    }
    if (!token || token->empty()) {
        if (!findings.isPrevented("push.registration",
                                  {"notifications.permission", "app.running", "push.distributor"},
                                  "There is no device token"))
            findings.failed("push.registration", "There is no device token.",
                            "Restart the app, not with --push off; its log tells what the registration "
                            "failed with.");
        return;
    }
    // A token of the local service is shorter than any subscription.
    const bool isLocal = token->size() == 2 * LocalPushService::tokenSize;
    const auto registration = UnifiedPushRegistration::stored(shell.values);
    const std::string distributor = registration && !isLocal ? registration->distributor() : "";
    const std::string found = fmt::format("There is a device token of {} bytes{}{}", token->size() / 2,
                                          isLocal               ? " for --push local"
                                          : distributor.empty() ? ""
                                                                : ", by ",
                                          distributor);
    const std::string replaced = distributor.empty() ? "" : registration->replacedDistributor();
    const bool isDistributorGone = names && !distributor.empty() && !names->isThere(distributor);
    if (!isDistributorGone && !replaced.empty() && chosenDistributor() != distributor)
        findings.warning("push.registration", fmt::format("{}, which took the place of {}.", found, replaced),
                         "If this is not intended, name the right one in UNIFIEDPUSH_DISTRIBUTOR and restart "
                         "the app.");
    else if (!isDistributorGone)
        findings.ok("push.registration", found + ".");
    else if (!findings.isPrevented("push.registration", {"push.distributor"}, found))
        findings.warning("push.registration", found + ", which is no longer on the session bus.",
                         "Start that distributor, or restart the app to register with another one.");
}

std::optional<SessionBusNames> askBus(Findings& findings, std::chrono::milliseconds timeout)
{
    try {
        auto names = SessionBusNames::ask(timeout);
        findings.ok("bus.session", "The session bus answers.");
        return names;
    } catch (const SessionBusError& error) {
        findings.failed("bus.session", fmt::format("The session bus cannot be asked: {}.", error.what()),
                        "Run this in the desktop session of the app's user.");
        return std::nullopt;
    }
}

} // namespace

void examineNotifications(Examination& examination)
{
    Findings& findings = examination.findings;
    const auto names = askBus(findings, examination.limits.timeout);
    std::optional<InspectedStore> shell;
    if (!findings.isPrevented("notifications.permission", {"state.folder"}))
        checkPermission(examination, shell.emplace(examination.paths->shellState()));
    checkServer(findings, names);
    checkDistributor(examination, names);
    if (!findings.isPrevented("push.registration", {"state.folder"}))
        checkRegistration(examination, *shell, names);
}

} // namespace Qvctl
