#pragma once

#include "Platform/Application.h"
#include "Platform/Push/PushServiceState.h"
#include "Platform/PushService.h"

#include <functional>
#include <optional>
#include <utility>

namespace Platform {
class Clock;
class UserDefaults;
class UserNotificationDelivery;
} // namespace Platform

namespace Platform::Push {

/// The runtime of the application on a desktop: tells the delegate what happens, and sends each push where it
/// belongs.
///
/// A payload with an `aps.alert`, a text or a dictionary, goes to the notification centre; one with
/// `content-available: 1`, and one without an alert, to the delegate's background callback. One that takes
/// both ways is accepted when either takes it, unless something it brought could not be stored.
///
/// Threads: main. Ownership: refers to its ports; holds the delegate weakly.
class DeviceApplication final : public Application, public PushServiceListener {
public:
    struct Ports {
        PushService& pushService;
        PushServiceKind pushServiceKind;
        UserNotificationDelivery& notifications;
        /// Takes the `PushServiceState`.
        UserDefaults& systemStore;
        const Clock& clock;
        /// Shows the page of this application in the settings.
        std::function<void()> openSettings;
    };

    explicit DeviceApplication(Ports ports) : m_ports(std::move(ports)) {}

    void setDelegate(std::weak_ptr<ApplicationDelegate> delegate) override;
    void registerForRemoteNotifications() override;
    /// Handles only the settings URL.
    void open(std::string_view url) override;

    /// Tells the delegate that launching has finished, and lets pushes come in. Once, with the delegate set.
    void finishLaunching();
    /// Whether the user has the application in front.
    void setActive(bool isActive) { m_isActive = isActive; }

    void didRegister(const Data& deviceToken) override;
    void didFailToRegister(const Error& error) override;
    void didReceive(const PropertyList::Dictionary& payload, Completion completion) override;

private:
    void recordRegistration(std::optional<PushServiceState::Failure> failure);
    void deliverInBackground(const PropertyList::Dictionary& payload, Completion completion);

    const Ports m_ports;
    std::weak_ptr<ApplicationDelegate> m_delegate;
    bool m_isActive = false;
};

} // namespace Platform::Push
