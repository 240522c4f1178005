#pragma once

#include "Platform/PushRefusal.h"
#include "Platform/UserNotificationCenter.h"

#include <functional>
#include <optional>
#include <string>

// The interfaces of the system's side of notifications: delivery, display, permission and preferences.

namespace Platform {

/// Accepts notifications for the user.
///
/// Threads: main.
class UserNotificationDelivery {
public:
    using Completion = std::function<void(std::optional<PushRefusal> refusal)>;

    virtual ~UserNotificationDelivery() = default;

    /// Shows `notification`; if the application is active, passes it to the delegate first. `completion` is
    /// called exactly once, on the main thread, without a refusal once the notification is visible, stored by
    /// the delegate, or stored until it can be shown.
    virtual void deliver(const UserNotification& notification, bool isApplicationActive,
                         Completion completion) = 0;
};

/// Shows notifications to the user, immediately or not at all.
///
/// Threads: main.
class NotificationPresenter {
public:
    virtual ~NotificationPresenter() = default;

    /// Shows `notification` with the `PresentationOptions` bits in `options`. `completion` is called exactly
    /// once, on the main thread and possibly inside this call. `onResponse` is called at most once, on the
    /// main thread, when the user taps the notification, chooses an action or dismisses it.
    virtual void show(const UserNotification& notification, unsigned options,
                      std::function<void(bool isShown)> completion, std::function<void()> onResponse) = 0;
    /// Sets the handler that is called on the main thread whenever a notification that could not be shown
    /// before may be shown now. Called once.
    virtual void onAvailable(std::function<void()> handler) = 0;
};

/// Asks the user for permission to show notifications.
///
/// Threads: main.
class PermissionPrompt {
public:
    virtual ~PermissionPrompt() = default;

    /// Calls `completion` on the main thread, at most once, when the user has decided.
    virtual void requestPermission(std::function<void(bool isGranted)> completion) = 0;
};

/// The notification preferences on this application's page in the system settings.
///
/// Threads: main. Implementations must return the current values, not cached ones.
class NotificationPreferences {
public:
    virtual ~NotificationPreferences() = default;

    [[nodiscard]] virtual AuthorizationStatus authorizationStatus() const = 0;
    /// Sets the user's decision.
    virtual void setAllowed(bool isAllowed) = 0;
    /// The name and version of the notification server, or empty.
    [[nodiscard]] virtual std::string notificationServer() const = 0;
    /// A human-readable name of the push source.
    [[nodiscard]] virtual std::string pushSource() const = 0;
};

} // namespace Platform
