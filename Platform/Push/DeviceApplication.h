#pragma once

#include "Platform/Activity.h"
#include "Platform/Application.h"
#include "Platform/Push/PushServiceState.h"
#include "Platform/PushService.h"

#include <functional>
#include <optional>
#include <utility>

namespace Platform {
class Clock;
class OutcomeRecorder;
class UserDefaults;
class UserNotificationDelivery;
} // namespace Platform

namespace Platform::Push {

/// The runtime of the application: calls the delegate and routes each push.
///
/// A payload whose `aps.alert` is a string or a dictionary goes to the notification center. A payload with
/// `content-available: 1`, or without an alert, goes to the delegate's background callback. A payload that
/// goes both ways is accepted if one of them accepts it, unless part of it could not be stored.
///
/// The outcome of each push is recorded.
///
/// Threads: main. Ownership: references its ports; holds the delegate weakly.
class DeviceApplication final : public Application, public PushServiceListener {
public:
    struct Ports {
        PushService& pushService;
        PushServiceKind pushServiceKind;
        UserNotificationDelivery& notifications;
        /// Stores the `PushServiceState`.
        UserDefaults& systemStore;
        const Clock& clock;
        /// Shows this application's page in the system settings.
        std::function<void()> openSettings;
        /// Counts each push until it is completed.
        const Activity& activity;
        OutcomeRecorder& outcomes;
    };

    explicit DeviceApplication(Ports ports) : m_ports(std::move(ports)) {}

    void setDelegate(std::weak_ptr<ApplicationDelegate> delegate) override;
    void registerForRemoteNotifications() override;
    /// Handles only the settings URL.
    void open(std::string_view url) override;

    /// Reports to the delegate that launching has finished and starts the push service. Called once, after
    /// the delegate is set.
    void finishLaunching();
    /// Sets whether the application is in the foreground.
    void setActive(bool isActive) { m_isActive = isActive; }

    void didRegister(const Data& deviceToken) override;
    void didFailToRegister(const Error& error) override;
    void didReceive(const PropertyList::Dictionary& payload, Completion completion) override;
    void didReceiveUnreadablePush() override;

private:
    void recordRegistration(std::optional<PushServiceState::Failure> failure);
    void deliverInBackground(const PropertyList::Dictionary& payload, Completion completion);

    const Ports m_ports;
    std::weak_ptr<ApplicationDelegate> m_delegate;
    bool m_isActive = false;
};

} // namespace Platform::Push
