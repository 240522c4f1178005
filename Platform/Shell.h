#pragma once

#include "Platform/PushRefusal.h"
#include "Platform/UserNotificationCenter.h"

#include <functional>
#include <optional>
#include <string>

// What the system's side of notifications is made of: where they enter, who shows them, who asks the user.

namespace Platform {

/// Where notifications enter the centre. Threads: main.
class UserNotificationDelivery {
public:
    using Completion = std::function<void(std::optional<PushRefusal> refusal)>;

    virtual ~UserNotificationDelivery() = default;

    /// Hands `notification` to the delegate while the application is in front, and shows it. `completion` is
    /// called exactly once, on the main thread; without a refusal once the delegate has stored the
    /// notification, the user sees it, or it is kept until the user can.
    virtual void deliver(const UserNotification& notification, bool isApplicationActive,
                         Completion completion) = 0;
};

/// Shows notifications to the user, each at once or not at all. Threads: main.
class NotificationPresenter {
public:
    virtual ~NotificationPresenter() = default;

    /// Shows `notification` as `options`, of `PresentationOptions`, say. `completion` is called exactly once,
    /// on the main thread and perhaps inside the call, with whether the user sees it. `onResponse` is called
    /// there when the user answers: by a tap, an action, or by dismissing it; at most once.
    virtual void show(const UserNotification& notification, unsigned options,
                      std::function<void(bool isShown)> completion, std::function<void()> onResponse) = 0;
    /// Calls `handler` on the main thread whenever what could not be shown before may be shown now. Once.
    virtual void onAvailable(std::function<void()> handler) = 0;
};

/// Asks the user whether this application may show notifications. Threads: main.
class PermissionPrompt {
public:
    virtual ~PermissionPrompt() = default;

    /// `completion` is called at most once, on the main thread: when the user has decided.
    virtual void requestPermission(std::function<void(bool isGranted)> completion) = 0;
};

/// What the page of this application in the system's settings shows and changes. Threads: main.
///
/// Implementers owe: every answer is what is true at the moment.
class NotificationPreferences {
public:
    virtual ~NotificationPreferences() = default;

    [[nodiscard]] virtual AuthorizationStatus authorizationStatus() const = 0;
    /// The user's decision, in place of any before.
    virtual void setAllowed(bool isAllowed) = 0;
    /// The name and version of the server that shows notifications; empty when there is none.
    [[nodiscard]] virtual std::string notificationServer() const = 0;
    /// Where pushes come from, in words for people.
    [[nodiscard]] virtual std::string pushSource() const = 0;
};

} // namespace Platform
