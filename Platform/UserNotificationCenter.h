#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Platform {

/// What the user has decided about notifications. The numbers are the system's own.
enum class AuthorizationStatus {
    notDetermined = 0,
    denied = 1,
    authorized = 2,
    provisional = 3,
    ephemeral = 4
};

/// Bits of what may be asked of the user.
namespace AuthorizationOptions {
inline constexpr unsigned badge = 1;
inline constexpr unsigned sound = 2;
inline constexpr unsigned alert = 4;
} // namespace AuthorizationOptions

/// Bits of how a notification is shown that arrives while the application is in front.
namespace PresentationOptions {
inline constexpr unsigned badge = 1;
inline constexpr unsigned sound = 2;
inline constexpr unsigned list = 8;
inline constexpr unsigned banner = 16;
} // namespace PresentationOptions

struct NotificationSettings {
    AuthorizationStatus authorizationStatus = AuthorizationStatus::notDetermined;
};

/// A notification as the system shows it.
struct UserNotification {
    /// Empty when it has none.
    std::string title;
    /// Empty when it has none.
    std::string body;
    /// The payload that it came from.
    PropertyList::Dictionary userInfo;
    /// When it was delivered.
    Date date;
    /// Whether the sender wants a sound with it.
    bool hasSound = false;
    /// Whether the sender wants it to wait for the user rather than to interrupt.
    bool isPassive = false;
};

/// What the user did with a notification: tapped it, chose an action, dismissed it.
struct UserNotificationResponse {
    UserNotification notification;
};

/// Told of notifications while the application runs. Threads: main.
class UserNotificationCenterDelegate {
public:
    /// `options` are `PresentationOptions`; `isStored`: whether the record of the notification is committed.
    using PresentationCompletion = std::function<void(unsigned options, bool isStored)>;

    virtual ~UserNotificationCenterDelegate() = default;

    /// A notification arrives while the application is in front.
    virtual void willPresent(const UserNotification& notification,
                             const PresentationCompletion& completion) = 0;
    virtual void didReceive(const UserNotificationResponse& response,
                            const std::function<void()>& completion) = 0;
};

/// The system's centre of notifications.
///
/// Threads: operations from any. Implementers owe: every completion is called exactly once, on a thread of
/// their own choice; the delegate is called on the main thread, and held weakly.
class UserNotificationCenter {
public:
    /// Granted or not, or the error for which the user could not be asked.
    using AuthorizationCompletion = std::function<void(bool isGranted, std::optional<Error> error)>;

    virtual ~UserNotificationCenter() = default;

    virtual void getNotificationSettings(std::function<void(NotificationSettings)> completion) = 0;
    /// Asks the user, unless there is a decision already. `options` are `AuthorizationOptions`.
    virtual void requestAuthorization(unsigned options, AuthorizationCompletion completion) = 0;
    virtual void setDelegate(std::weak_ptr<UserNotificationCenterDelegate> delegate) = 0;
};

} // namespace Platform
