#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Platform {

/// The user's decision about notifications. The values match the platform's.
enum class AuthorizationStatus {
    notDetermined = 0,
    denied = 1,
    authorized = 2,
    provisional = 3,
    ephemeral = 4
};

/// The bits of the permissions that can be requested.
namespace AuthorizationOptions {
inline constexpr unsigned badge = 1;
inline constexpr unsigned sound = 2;
inline constexpr unsigned alert = 4;
} // namespace AuthorizationOptions

/// The bits of how to show a notification that arrives while the application is in the foreground.
namespace PresentationOptions {
inline constexpr unsigned badge = 1;
inline constexpr unsigned sound = 2;
inline constexpr unsigned list = 8;
inline constexpr unsigned banner = 16;
} // namespace PresentationOptions

struct NotificationSettings {
    AuthorizationStatus authorizationStatus = AuthorizationStatus::notDetermined;
};

/// A notification for the user.
struct UserNotification {
    /// Empty if it has none.
    std::string title;
    /// Empty if it has none.
    std::string body;
    /// The payload of the push.
    PropertyList::Dictionary userInfo;
    /// The time of delivery.
    Date date;
    /// Whether the sender requested a sound.
    bool hasSound = false;
    /// Whether the sender requested that it does not interrupt the user.
    bool isPassive = false;
};

/// The user's response to a notification: a tap, an action or its dismissal.
struct UserNotificationResponse {
    UserNotification notification;
};

/// Receives the notifications that arrive while the application runs, and the user's responses.
///
/// Threads: main.
class UserNotificationCenterDelegate {
public:
    /// `options` are `PresentationOptions` bits. `isStored` is whether the notification is committed to the
    /// history.
    using PresentationCompletion = std::function<void(unsigned options, bool isStored)>;

    virtual ~UserNotificationCenterDelegate() = default;

    /// Called when a notification arrives while the application is in the foreground.
    virtual void willPresent(const UserNotification& notification,
                             const PresentationCompletion& completion) = 0;
    /// Called when the user responds to a notification.
    virtual void didReceive(const UserNotificationResponse& response,
                            const std::function<void()>& completion) = 0;
};

/// The system's notification center.
///
/// Threads: any. Implementations must call each completion exactly once, on any thread; must call the
/// delegate on the main thread; and must hold it weakly.
class UserNotificationCenter {
public:
    /// `error` is set if the user could not be asked.
    using AuthorizationCompletion = std::function<void(bool isGranted, std::optional<Error> error)>;

    virtual ~UserNotificationCenter() = default;

    virtual void getNotificationSettings(std::function<void(NotificationSettings)> completion) = 0;
    /// Asks the user for permission, unless the user has already decided. `options` are
    /// `AuthorizationOptions` bits.
    virtual void requestAuthorization(unsigned options, AuthorizationCompletion completion) = 0;
    virtual void setDelegate(std::weak_ptr<UserNotificationCenterDelegate> delegate) = 0;
};

} // namespace Platform
