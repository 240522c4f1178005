#include "Platform/Desktop/DesktopApplication.h"

#include "Platform/Clock.h"
#include "Platform/Shell.h"
#include "Platform/UserDefaults.h"

#include <utility>

namespace Platform::Desktop {

namespace {

std::string textOf(const PropertyList& value)
{
    const auto* text = value.text();
    return text != nullptr ? *text : std::string();
}

bool isContentAvailable(const PropertyList& aps)
{
    const auto* flag = member(aps, "content-available").integer();
    return flag != nullptr && *flag == 1;
}

} // namespace

void DesktopApplication::setDelegate(std::weak_ptr<ApplicationDelegate> delegate)
{
    m_delegate = std::move(delegate);
}

void DesktopApplication::registerForRemoteNotifications()
{
    m_ports.pushService.registerDevice();
}

void DesktopApplication::open(std::string_view url)
{
    if (url == openSettingsURLString)
        m_ports.openSettings();
}

void DesktopApplication::finishLaunching()
{
    if (const auto delegate = m_delegate.lock())
        delegate->didFinishLaunching();
    m_ports.pushService.start(*this);
}

void DesktopApplication::didRegister(const Data& deviceToken)
{
    if (const auto delegate = m_delegate.lock())
        delegate->didRegisterForRemoteNotifications(deviceToken);
}

void DesktopApplication::didFailToRegister(const Error& error)
{
    if (const auto delegate = m_delegate.lock())
        delegate->didFailToRegisterForRemoteNotifications(error);
}

DesktopApplication::Completion DesktopApplication::unlessLost(Completion completion) const
{
    return [&store = m_ports.store, failuresBefore = m_ports.store.failureCount(),
            completion = std::move(completion)](const std::optional<std::string>& refusal) {
        const bool isLost = store.failureCount() != failuresBefore;
        completion(isLost ? "it could not be stored; the log tells why" : refusal);
    };
}

void DesktopApplication::didReceive(const PropertyList::Dictionary& payload, Completion completion)
{
    completion = unlessLost(std::move(completion));
    const PropertyList& aps = member(payload, "aps");
    const PropertyList& alert = member(aps, "alert");
    const bool isShort = alert.text() != nullptr;
    if (!isShort && alert.dictionary() == nullptr) {
        deliverInBackground(payload, std::move(completion));
        return;
    }
    Completion afterAlert = completion;
    if (isContentAvailable(aps))
        // Dealt with when one of the two ways has taken it.
        afterAlert = [this, payload, completion](const std::optional<std::string>& refusal) {
            deliverInBackground(payload, [=](const std::optional<std::string>& secondRefusal) {
                completion(refusal ? secondRefusal : std::nullopt);
            });
        };
    m_ports.notifications.deliver({.title = textOf(isShort ? alert : member(alert, "title")),
                                   .body = textOf(member(alert, "body")),
                                   .userInfo = payload,
                                   .date = m_ports.clock.now()},
                                  m_isActive, std::move(afterAlert));
}

void DesktopApplication::deliverInBackground(const PropertyList::Dictionary& payload, Completion completion)
{
    const auto delegate = m_delegate.lock();
    if (!delegate) {
        completion("the application is ending");
        return;
    }
    delegate->didReceiveRemoteNotification(
        payload, [completion = std::move(completion)](BackgroundFetchResult) { completion(std::nullopt); });
}

} // namespace Platform::Desktop
