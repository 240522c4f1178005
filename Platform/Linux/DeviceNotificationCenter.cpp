#include "Platform/Linux/DeviceNotificationCenter.h"

#include "Platform/DispatchQueue.h"
#include "Platform/Linux/ShellState.h"

#include <utility>

namespace Platform::Linux {

namespace {

constexpr unsigned everyPresentation = PresentationOptions::badge | PresentationOptions::sound |
                                       PresentationOptions::list | PresentationOptions::banner;

bool mayNotify(AuthorizationStatus status)
{
    return status == AuthorizationStatus::authorized || status == AuthorizationStatus::provisional ||
           status == AuthorizationStatus::ephemeral;
}

Error nobodyToAsk()
{
    constexpr const char* domain = "Platform.Linux.PermissionError";
    return {.typeName = domain,
            .domain = domain,
            .code = 1,
            .localizedDescription = "There is no screen on which the user could be asked.",
            .localizedFailureReason = {}};
}

} // namespace

void DeviceNotificationCenter::getNotificationSettings(std::function<void(NotificationSettings)> completion)
{
    m_ports.mainQueue.async(
        [this, completion = std::move(completion)] { completion({m_ports.state.authorizationStatus()}); });
}

void DeviceNotificationCenter::requestAuthorization(unsigned, AuthorizationCompletion completion)
{
    m_ports.mainQueue.async(
        [this, completion = std::move(completion)]() mutable { decide(std::move(completion)); });
}

void DeviceNotificationCenter::setDelegate(std::weak_ptr<UserNotificationCenterDelegate> delegate)
{
    m_ports.mainQueue.async([this, delegate = std::move(delegate)] { m_delegate = delegate; });
}

void DeviceNotificationCenter::decide(AuthorizationCompletion completion)
{
    if (const auto status = m_ports.state.authorizationStatus();
        status != AuthorizationStatus::notDetermined) {
        completion(mayNotify(status), std::nullopt);
        return;
    }
    if (m_ports.prompt == nullptr) {
        completion(false, nobodyToAsk());
        return;
    }
    m_waiting.push_back(std::move(completion));
    if (m_waiting.size() > 1)
        return;
    m_ports.prompt->ask([this](bool isGranted) {
        m_ports.state.setAuthorizationStatus(isGranted ? AuthorizationStatus::authorized
                                                       : AuthorizationStatus::denied);
        for (const auto& waiting : std::exchange(m_waiting, {}))
            waiting(isGranted, std::nullopt);
    });
}

void DeviceNotificationCenter::deliver(const UserNotification& notification, bool isApplicationActive,
                                       Completion completion)
{
    const AuthorizationStatus status = m_ports.state.authorizationStatus();
    if (!mayNotify(status)) {
        completion(PushRefusal{status == AuthorizationStatus::denied
                                   ? "the user does not allow notifications"
                                   : "the user has not allowed notifications yet"});
        return;
    }
    const auto delegate = m_delegate.lock();
    if (isApplicationActive && delegate) {
        delegate->willPresent(
            notification, [this, notification, completion](unsigned options, bool isStored) {
                completion(isStored ? std::nullopt : std::optional(PushRefusal::notStored()));
                present(notification, options, 0, [](bool) {});
            });
        return;
    }
    present(notification, everyPresentation, 0, [completion](bool isShown) {
        completion(isShown ? std::nullopt
                           : std::optional(PushRefusal{"nothing on this desktop can show a notification"}));
    });
}

void DeviceNotificationCenter::present(const UserNotification& notification, unsigned options,
                                       std::size_t presenterIndex,
                                       const std::function<void(bool)>& completion)
{
    if (presenterIndex == m_ports.presenters.size()) {
        completion(false);
        return;
    }
    m_ports.presenters[presenterIndex]->show(
        notification, options,
        [=, this](bool isShown) {
            if (isShown)
                completion(true);
            else
                present(notification, options, presenterIndex + 1, completion);
        },
        [this, notification] { respond(notification); });
}

void DeviceNotificationCenter::respond(const UserNotification& notification) const
{
    if (const auto delegate = m_delegate.lock())
        delegate->didReceive({notification}, [] {});
}

} // namespace Platform::Linux
