#pragma once

#include "Platform/Task.h"
#include "Platform/UserNotificationCenter.h"

namespace Core {
class Logger;
}

namespace PushNotifications {

/// Reads the notification permission and requests it from the user.
///
/// Threads: any. Tasks resume on the thread on which the notification center calls back; switch to the main
/// queue before touching the user interface. Ownership: the manager and the constructor's arguments must
/// outlive its tasks.
class NotificationPermissionManager {
public:
    NotificationPermissionManager(Platform::UserNotificationCenter& center, Core::Logger& logger)
        : m_center(center), m_logger(logger)
    {}

    /// Returns the manager of this process, created on first use and never destroyed.
    static NotificationPermissionManager& shared();

    [[nodiscard]] Platform::Task<Platform::AuthorizationStatus> currentStatus() const;
    /// Returns true only for `authorized`, not for provisional or ephemeral permission.
    [[nodiscard]] Platform::Task<bool> isAuthorized() const;
    /// Requests alerts, badges and sounds. Returns false if the user denies the request or the request fails;
    /// only the log distinguishes the two. Never throws.
    [[nodiscard]] Platform::Task<bool> requestAuthorization() const;

private:
    Platform::UserNotificationCenter& m_center;
    Core::Logger& m_logger;
};

} // namespace PushNotifications
