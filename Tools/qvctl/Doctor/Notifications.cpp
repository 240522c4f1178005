// Checks of the session bus, the permission, the notification server and the push registration.

#include "Core/Constants.h"
#include "Platform/Linux/Bus/UnifiedPushDistributors.h"
#include "Platform/Push/PushRegistrationError.h"
#include "Platform/Push/PushServiceState.h"
#include "Platform/Push/ShellState.h"
#include "Platform/Push/UnifiedPushRegistration.h"
#include "Tools/qvctl/Device.h"
#include "Tools/qvctl/Doctor/Examination.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace Qvctl::Doctor {

namespace {

using namespace Platform::Push;
using namespace Platform::Linux;
using Platform::AuthorizationStatus;

constexpr std::string_view serverName = "org.freedesktop.Notifications";

void checkPermission(Examination& examination, InspectedStore& shell)
{
    CheckReport& report = examination.report;
    const AuthorizationStatus status = ShellState(shell.values).authorizationStatus();
    if (!shell.problem().empty())
        report.failed("notifications.permission", shell.problem() + ".",
                      "Restart the app: it moves a damaged store aside and asks the user again.");
    else if (status == AuthorizationStatus::denied)
        report.failed("notifications.permission", "The user does not allow notifications.",
                      "Ask the user to allow them in the app's settings; for tests, run: qvctl privacy grant "
                      "notifications");
    else if (status != AuthorizationStatus::notDetermined)
        report.ok("notifications.permission", "The user allows notifications.");
    else if (!report.isPrevented("notifications.permission", {"app.running"},
                                 "The user has not been asked yet"))
        report.failed("notifications.permission", "The user has not been asked yet.",
                      "Open the app, tap Get Started and answer the permission prompt.");
}

void checkServer(CheckReport& report, const std::optional<SessionBusNames>& names)
{
    if (report.isPrevented("notifications.server", {"bus.session"}))
        return;
    if (names->running.count(serverName) != 0)
        report.ok("notifications.server", "A notification server is running.");
    else if (names->startable.count(serverName) != 0)
        report.ok("notifications.server", "The session bus can start a notification server.");
    else
        report.failed("notifications.server",
                      fmt::format("There is no notification server: no program owns {}.", serverName),
                      "Install and start a notification server; without one, the app can show banners only "
                      "in its own window.");
}

/// Why the last registration failed, as a clause; empty if it did not fail.
std::string failureText(const Examination& examination)
{
    const auto& service = examination.pushService;
    if (!service || !service->failure)
        return {};
    // In the order of `PushRegistrationErrorCode`.
    constexpr std::array<std::string_view, 7> reasons{
        "no push distributor was found",
        "another program owns the app's name on the session bus",
        "the distributor sent an invalid reply",
        "the distributor was offline",
        "the distributor requires user action",
        "the distributor refused it",
        "it could not be stored"};
    const auto index = static_cast<std::size_t>(service->failure->code) - 1;
    return fmt::format("the registration on {} failed: {}", timeText(service->failure->time),
                       index < reasons.size() ? reasons.at(index) : "unknown error");
}

/// Whether the app is running and uses this push service.
bool isUsing(const Examination& examination, PushServiceKind kind)
{
    return examination.application && examination.pushService && examination.pushService->kind == kind;
}

/// --push local needs a socket instead of a distributor.
void checkLocalService(Examination& examination)
{
    const std::string socket = examination.paths->pushSocket.string();
    const auto& failure = examination.pushService->failure;
    if (failure && failure->code == static_cast<std::int64_t>(PushRegistrationErrorCode::noDistributor))
        examination.report.failed(
            "push.distributor", fmt::format("The app does not accept pushes at {}.", socket),
            "Look for the socket's error in the log (qvctl log), fix it and restart the app.");
    else
        examination.report.ok("push.distributor",
                              fmt::format("No distributor is needed: the app accepts pushes at {}.", socket));
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

/// The bus name that UNIFIEDPUSH_DISTRIBUTOR selects; empty if it is not set.
std::string selectedDistributor()
{
    const char* suffix = std::getenv("UNIFIEDPUSH_DISTRIBUTOR");
    return suffix != nullptr && *suffix != '\0'
               ? std::string(Bus::UnifiedPushDistributors::namePrefix) + suffix
               : std::string();
}

void reportNoDistributor(Examination& examination)
{
    CheckReport& report = examination.report;
    constexpr const char* found = "There is no push distributor on the session bus";
    if (report.isPrevented("push.distributor", {"state.folder"}, found))
        return;
    if (examination.application && !examination.pushService)
        report.skipped(
            "push.distributor",
            fmt::format("{}. The app has not recorded whether it needs one; if an older version is "
                        "running, restart it.",
                        found));
    else
        report.failed(
            "push.distributor", fmt::format("{}.", found),
            "Install and start a UnifiedPush distributor; for tests, run the app with --push local.");
}

void checkDistributor(Examination& examination, const std::optional<SessionBusNames>& names)
{
    CheckReport& report = examination.report;
    if (isUsing(examination, PushServiceKind::local)) {
        checkLocalService(examination);
        return;
    }
    if (report.isPrevented("push.distributor", {"bus.session"}))
        return;
    if (isUsing(examination, PushServiceKind::unavailable)) {
        report.failed("push.distributor", "The app has no access to the session bus.",
                      "Restart the app in its user's desktop session.");
        return;
    }
    const auto distributors = distributorsAmong(*names);
    const std::string selected = selectedDistributor();
    if (distributors.empty())
        reportNoDistributor(examination);
    else if (!selected.empty() && !names->isThere(selected))
        report.failed("push.distributor",
                      fmt::format("{}, selected by UNIFIEDPUSH_DISTRIBUTOR, is not on the session bus, and "
                                  "the app uses no other; available: {}.",
                                  selected, fmt::join(distributors, ", ")),
                      "Start it, or select another one.");
    else
        report.ok("push.distributor", fmt::format("Found {}.", fmt::join(distributors, ", ")));
}

/// Distributors drop the registration of an app that the bus cannot start.
void checkActivation(Examination& examination, const std::optional<SessionBusNames>& names)
{
    CheckReport& report = examination.report;
    if (isUsing(examination, PushServiceKind::local) || isUsing(examination, PushServiceKind::off))
        report.skipped("push.activation", "Not needed: the app does not use a push distributor.");
    else if (report.isPrevented("push.activation", {"bus.session"}))
        return;
    else if (names->startable.count(applicationIdentifier) != 0)
        report.ok("push.activation", "The session bus can start the app for a push.");
    else
        report.failed("push.activation",
                      fmt::format("The session bus cannot start the app for a push: it has no service file "
                                  "for {}. Distributors drop the registration of such an app.",
                                  applicationIdentifier),
                      fmt::format("Install the package of the app; it contains "
                                  "/usr/share/dbus-1/services/{}.service. Then restart the distributor.",
                                  applicationIdentifier));
}

/// What is wrong although there is a token.
struct RegistrationProblem {
    /// The end of a sentence: ", but …".
    std::string found;
    const char* fix;
};

std::optional<RegistrationProblem> registrationProblem(const Examination& examination,
                                                       const std::optional<SessionBusNames>& names,
                                                       const std::string& distributor,
                                                       const std::string& replaced)
{
    if (names && !distributor.empty() && !names->isThere(distributor))
        return {{", which is no longer on the session bus",
                 "Start that distributor, or restart the app to register with another one."}};
    if (isUsing(examination, PushServiceKind::off))
        return {{", but the app runs with --push off", "Restart the app without --push off."}};
    if (const std::string failure = failureText(examination); !failure.empty())
        return {{", but " + failure, "Restart the app; its log has the details: qvctl log"}};
    if (!replaced.empty() && selectedDistributor() != distributor)
        return {{fmt::format(", which replaced {}", replaced),
                 "If this is not intended, select a distributor with UNIFIEDPUSH_DISTRIBUTOR and restart the "
                 "app."}};
    return std::nullopt;
}

void reportNoToken(Examination& examination)
{
    const std::string failure = failureText(examination);
    const std::string found = "There is no device token" + (failure.empty() ? "" : ", and " + failure);
    if (!examination.report.isPrevented(
            "push.registration", {"notifications.permission", "app.running", "push.distributor"}, found))
        examination.report.failed("push.registration", found + ".",
                                  "Restart the app without --push off; its log has the details: qvctl log");
}

void checkRegistration(Examination& examination, const InspectedStore& shell,
                       const std::optional<SessionBusNames>& names)
{
    CheckReport& report = examination.report;
    InspectedStore standard(examination.paths->standardDefaults());
    const auto token = standard.values.text(Core::Constants::StorageKeys::remoteNotificationDeviceToken);
    if (!standard.problem().empty()) {
        report.failed("push.registration", standard.problem() + ".",
                      "Restart the app: it moves a damaged store aside and registers again.");
        return;
    }
    if (!token || token->empty()) {
        reportNoToken(examination);
        return;
    }
    const auto& service = examination.pushService;
    std::string distributor;
    std::string replaced;
    std::string found = fmt::format("There is a device token of {} bytes", token->size() / 2);
    if (!service || service->kind == PushServiceKind::unifiedPush) {
        distributor = shell.values.text(UnifiedPushRegistration::distributorKey).value_or("");
        replaced = shell.values.text(UnifiedPushRegistration::replacedDistributorKey).value_or("");
    } else if (service->kind == PushServiceKind::local) {
        found += " for --push local";
    }
    if (!distributor.empty())
        found += ", from " + distributor;
    const auto problem = registrationProblem(examination, names, distributor, replaced);
    if (!problem)
        report.ok("push.registration", found + ".");
    else if (!report.isPrevented("push.registration", {"push.distributor"}, found))
        report.warning("push.registration", found + problem->found + ".", problem->fix);
}

} // namespace

void examineBus(Examination& examination)
{
    CheckReport& report = examination.report;
    try {
        examination.busNames = SessionBusNames::query(examination.limits.timeout);
        report.ok("bus.session", "The session bus is available.");
    } catch (const SessionBusError& error) {
        if (examination.options.isOtherUser && std::getenv("XDG_RUNTIME_DIR") == nullptr)
            report.failed("bus.session",
                          fmt::format("The user is not logged in, or has a session bus that is unknown here: "
                                      "there is no folder /run/user/{}.",
                                      ::geteuid()),
                          "If the user is logged in, run this command in that session.");
        else
            report.failed("bus.session", fmt::format("The session bus is not available: {}.", error.what()),
                          "Run this command in the desktop session of the app's user.");
    }
}

void examineNotifications(Examination& examination)
{
    CheckReport& report = examination.report;
    const auto& names = examination.busNames;
    std::optional<InspectedStore> shell;
    if (!report.isPrevented("notifications.permission", {"state.folder"})) {
        checkPermission(examination, shell.emplace(examination.paths->shellState()));
        examination.pushService = PushServiceState::stored(shell->values);
    }
    checkServer(report, names);
    checkDistributor(examination, names);
    checkActivation(examination, names);
    if (!report.isPrevented("push.registration", {"state.folder"}))
        checkRegistration(examination, *shell, names);
}

} // namespace Qvctl::Doctor
