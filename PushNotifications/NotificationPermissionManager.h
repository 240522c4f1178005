#pragma once

#include "Platform/Task.h"
#include "Platform/UserNotificationCenter.h"

namespace Core {
class Logger;
}

namespace PushNotifications {

/// The one place that asks the user for permission to show notifications, and reads the present state of it.
///
/// Threads: any. A task goes on on the thread on which the notification centre answers; whoever touches the
/// user interface afterwards goes to the main queue. Ownership: refers to what it is built from, which must
/// outlive the tasks it makes.
class NotificationPermissionManager {
public:
    NotificationPermissionManager(Platform::UserNotificationCenter& center, Core::Logger& logger)
        : m_center(center), m_logger(logger)
    {}

    /// The manager of this process, made on first use and never destroyed.
    static NotificationPermissionManager& shared();

    [[nodiscard]] Platform::Task<Platform::AuthorizationStatus> currentStatus() const;
    /// True for exactly `authorized`: provisional and ephemeral permission do not count.
    [[nodiscard]] Platform::Task<bool> isAuthorized() const;
    /// Asks for alerts, badges and sounds. False when the user refuses, and when there is no asking; only the
    /// log tells which. Never throws.
    [[nodiscard]] Platform::Task<bool> requestAuthorization() const;

private:
    Platform::UserNotificationCenter& m_center;
    Core::Logger& m_logger;
};

} // namespace PushNotifications
