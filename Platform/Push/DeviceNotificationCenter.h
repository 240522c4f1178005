#pragma once

#include "Platform/Push/PendingNotifications.h"
#include "Platform/Shell.h"
#include "Platform/UserNotificationCenter.h"

#include <cstddef>
#include <deque>
#include <vector>

namespace Platform {
class DispatchQueue;
}

namespace Platform::Push {

class ShellState;

/// The notification center of this device: reads the user's decision from the shell's store and passes
/// notifications to the delegate and the presenters.
///
/// A notification that no presenter can show waits until one can. If the application was in the foreground,
/// the delegate has stored the notification, so it waits in memory. Otherwise it waits in the store, across
/// restarts, and reaches the delegate only when the user responds to it. When the store is full, further
/// notifications are refused.
///
/// Threads: the operations of `UserNotificationCenter` may be called on any; everything else belongs to the
/// main thread, including completions and the delegate. Ownership: references its ports. Items on the main
/// queue and the presenters reference this object.
class DeviceNotificationCenter final : public UserNotificationCenter, public UserNotificationDelivery {
public:
    struct Ports {
        ShellState& state;
        DispatchQueue& mainQueue;
        /// Null if there is no screen.
        PermissionPrompt* prompt;
        /// In order of preference.
        std::vector<NotificationPresenter*> presenters;
    };

    /// The number of notifications that wait in memory; beyond it the oldest is dropped.
    static constexpr std::size_t maximumWaitingCount = 20;

    explicit DeviceNotificationCenter(Ports ports);

    void getNotificationSettings(std::function<void(NotificationSettings)> completion) override;
    /// Requests that arrive while the prompt is open share its result.
    void requestAuthorization(unsigned options, AuthorizationCompletion completion) override;
    void setDelegate(std::weak_ptr<UserNotificationCenterDelegate> delegate) override;

    /// If the application is active, `completion` is called when the delegate has completed; otherwise when
    /// the notification is shown or stored.
    void deliver(const UserNotification& notification, bool isApplicationActive,
                 Completion completion) override;

private:
    /// A notification that the delegate has stored and no presenter has shown yet.
    struct Waiting {
        UserNotification notification;
        unsigned options = 0;
    };

    void decide(AuthorizationCompletion completion);
    /// Tries the presenters, starting with `presenterIndex`. `completion` receives whether one of them showed
    /// the notification.
    void present(const UserNotification& notification, unsigned options, std::size_t presenterIndex,
                 const std::function<void(bool)>& completion);
    void wait(Waiting waiting);
    [[nodiscard]] std::optional<PushRefusal> store(const UserNotification& notification);
    /// Shows the waiting notifications one by one until a presenter fails.
    void showWaiting();
    void showPending();
    void scheduleShowing();
    void respond(const UserNotification& notification) const;

    const Ports m_ports;
    PendingNotifications m_pending;
    std::weak_ptr<UserNotificationCenterDelegate> m_delegate;
    /// The requests that wait for the user's decision.
    std::vector<AuthorizationCompletion> m_requests;
    /// Oldest first.
    std::deque<Waiting> m_waiting;
    /// Whether a presenter is showing a waiting notification and has not completed.
    bool m_isShowingWaiting = false;
};

} // namespace Platform::Push
