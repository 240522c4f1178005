#include "Platform/Push/DeviceApplication.h"

#include "Platform/ASCII.h"
#include "Platform/Clock.h"
#include "Platform/OutcomeRecorder.h"
#include "Platform/Push/PushPayload.h"
#include "Platform/Shell.h"

#include <utility>

namespace Platform::Push {

namespace {

/// Returns the refusal of a payload that was delivered in two ways.
std::optional<PushRefusal> combined(const std::optional<PushRefusal>& first,
                                    const std::optional<PushRefusal>& second)
{
    if (first && first->isTemporary)
        return first;
    if (second && second->isTemporary)
        return second;
    return first ? second : std::nullopt;
}

Outcome::Result resultOf(const std::optional<PushRefusal>& refusal)
{
    if (!refusal)
        return Outcome::Result::succeeded;
    return refusal->isTemporary ? Outcome::Result::deferred : Outcome::Result::failed;
}

} // namespace

void DeviceApplication::setDelegate(std::weak_ptr<ApplicationDelegate> delegate)
{
    m_delegate = std::move(delegate);
}

void DeviceApplication::registerForRemoteNotifications()
{
    m_ports.pushService.registerDevice();
}

void DeviceApplication::open(std::string_view url)
{
    if (equalsIgnoringASCIICase(url, openSettingsURLString))
        m_ports.openSettings();
}

void DeviceApplication::finishLaunching()
{
    if (const auto delegate = m_delegate.lock())
        delegate->didFinishLaunching();
    recordRegistration({});
    m_ports.pushService.start(*this);
}

void DeviceApplication::didRegister(const Data& deviceToken)
{
    // The upload follows in a moment.
    const Activity::Token work = m_ports.activity.begin();
    recordRegistration({});
    if (const auto delegate = m_delegate.lock())
        delegate->didRegisterForRemoteNotifications(deviceToken);
}

void DeviceApplication::didFailToRegister(const Error& error)
{
    recordRegistration(PushServiceState::Failure{error.code, m_ports.clock.now()});
    if (const auto delegate = m_delegate.lock())
        delegate->didFailToRegisterForRemoteNotifications(error);
}

void DeviceApplication::recordRegistration(std::optional<PushServiceState::Failure> failure)
{
    PushServiceState{m_ports.pushServiceKind, failure}.write(m_ports.systemStore);
}

void DeviceApplication::didReceive(const PropertyList::Dictionary& payload, Completion completion)
{
    PushContents contents = readPushContents(payload, m_ports.clock.now());
    const auto kind = contents.notification ? Outcome::Kind::alert : Outcome::Kind::silent;
    completion = [kind, &outcomes = m_ports.outcomes, inner = std::move(completion),
                  work = m_ports.activity.begin()](const std::optional<PushRefusal>& refusal) {
        outcomes.record(Outcome::Subject::push, resultOf(refusal), kind);
        inner(refusal);
    };
    if (!contents.notification) {
        deliverInBackground(payload, std::move(completion));
        return;
    }
    Completion afterAlert = completion;
    if (contents.isContentAvailable)
        afterAlert = [this, payload, completion](const std::optional<PushRefusal>& first) {
            deliverInBackground(payload, [=](const std::optional<PushRefusal>& second) {
                completion(combined(first, second));
            });
        };
    m_ports.notifications.deliver(*contents.notification, m_isActive, std::move(afterAlert));
}

void DeviceApplication::didReceiveUnreadablePush()
{
    m_ports.outcomes.record(Outcome::Subject::push, Outcome::Result::failed);
}

void DeviceApplication::deliverInBackground(const PropertyList::Dictionary& payload, Completion completion)
{
    const auto delegate = m_delegate.lock();
    if (!delegate) {
        completion(PushRefusal{"the application is quitting", true});
        return;
    }
    delegate->didReceiveRemoteNotification(
        payload, [completion = std::move(completion)](BackgroundFetchResult, bool isStored) {
            completion(isStored ? std::nullopt : std::optional(PushRefusal::notStored()));
        });
}

} // namespace Platform::Push
