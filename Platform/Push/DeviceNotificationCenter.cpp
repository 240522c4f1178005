#include "Platform/Push/DeviceNotificationCenter.h"

#include "Platform/DispatchQueue.h"
#include "Platform/Push/ShellState.h"

#include <memory>
#include <optional>
#include <utility>

namespace Platform::Push {

namespace {

constexpr unsigned everyPresentation = PresentationOptions::badge | PresentationOptions::sound |
                                       PresentationOptions::list | PresentationOptions::banner;

bool mayNotify(AuthorizationStatus status)
{
    return status == AuthorizationStatus::authorized || status == AuthorizationStatus::provisional ||
           status == AuthorizationStatus::ephemeral;
}

Error noPromptError()
{
    constexpr const char* domain = "Platform.Linux.PermissionError";
    return {.typeName = domain,
            .domain = domain,
            .code = 1,
            .localizedDescription = "There is no screen on which to ask the user.",
            .localizedFailureReason = {}};
}

} // namespace

DeviceNotificationCenter::DeviceNotificationCenter(Ports ports)
    : m_ports(std::move(ports)), m_pending(m_ports.state.store())
{
    for (NotificationPresenter* presenter : m_ports.presenters)
        presenter->onAvailable([this] { scheduleShowing(); });
    scheduleShowing(); // For notifications stored by an earlier run.
}

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
        completion(false, noPromptError());
        return;
    }
    m_requests.push_back(std::move(completion));
    if (m_requests.size() > 1)
        return;
    m_ports.prompt->requestPermission([this](bool isGranted) {
        m_ports.state.setAuthorizationStatus(isGranted ? AuthorizationStatus::authorized
                                                       : AuthorizationStatus::denied);
        for (const auto& request : std::exchange(m_requests, {}))
            request(isGranted, std::nullopt);
    });
}

void DeviceNotificationCenter::deliver(const UserNotification& notification, bool isApplicationActive,
                                       Completion completion)
{
    const AuthorizationStatus status = m_ports.state.authorizationStatus();
    if (status == AuthorizationStatus::notDetermined && !m_ports.state.store().isAvailable()) {
        completion(PushRefusal{"the user's decision about notifications cannot be read; see the log", true});
        return;
    }
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
                present(notification, options, 0, [=, this](bool isShown) {
                    if (!isShown)
                        wait({notification, options});
                });
            });
        return;
    }
    present(notification, everyPresentation, 0, [this, notification, completion](bool isShown) {
        completion(isShown ? std::nullopt : store(notification));
        if (isShown)
            scheduleShowing();
    });
}

void DeviceNotificationCenter::wait(Waiting waiting)
{
    if ((waiting.options & PresentationOptions::banner) == 0)
        return; // It would not be visible anyway.
    m_waiting.push_back(std::move(waiting));
    if (m_waiting.size() > maximumWaitingCount)
        m_waiting.pop_front();
}

std::optional<PushRefusal> DeviceNotificationCenter::store(const UserNotification& notification)
{
    switch (m_pending.add(notification)) {
    case PendingNotifications::Addition::added:
        return std::nullopt;
    case PendingNotifications::Addition::full:
        return PushRefusal{"too many notifications are already waiting to be shown", true};
    case PendingNotifications::Addition::notStored:
        break;
    }
    return PushRefusal::notStored();
}

void DeviceNotificationCenter::scheduleShowing()
{
    m_ports.mainQueue.async([this] { showWaiting(); });
}

void DeviceNotificationCenter::showWaiting()
{
    if (m_isShowingWaiting)
        return;
    if (m_waiting.empty()) {
        showPending();
        return;
    }
    m_isShowingWaiting = true;
    const Waiting next = std::move(m_waiting.front());
    m_waiting.pop_front();
    present(next.notification, next.options, 0, [this, next](bool isShown) {
        m_isShowingWaiting = false;
        if (isShown)
            scheduleShowing();
        else
            m_waiting.push_front(next);
    });
}

void DeviceNotificationCenter::showPending()
{
    const auto next = m_pending.oldest();
    if (!next || !mayNotify(m_ports.state.authorizationStatus()))
        return;
    m_isShowingWaiting = true;
    present(*next, everyPresentation, 0, [this](bool isShown) {
        m_isShowingWaiting = false;
        // A notification that cannot be removed would be shown again and again.
        if (isShown && m_pending.removeOldest())
            scheduleShowing();
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

} // namespace Platform::Push
