#pragma once

#include "Platform/Push/KeptNotifications.h"
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

/// The notification centre of this device: reads the user's decision from the shell's own store and hands
/// notifications to the delegate and the presenters.
///
/// What no presenter can show waits until one can. With the application in front, the delegate has stored the
/// notification, so it waits in memory. Otherwise it is kept in the store and survives a restart; it goes to
/// the delegate only when the user answers it. When the store holds as many as it may, a notification that
/// nothing can show is refused.
///
/// Threads: the centre's operations from any; completions and the delegate are called on the main thread, to
/// which everything else belongs. Ownership: refers to its ports; blocks that wait on the main queue, and the
/// presenters, refer to it.
class DeviceNotificationCenter final : public UserNotificationCenter, public UserNotificationDelivery {
public:
    struct Ports {
        ShellState& state;
        DispatchQueue& mainQueue;
        /// Null: nobody can be asked.
        PermissionPrompt* prompt;
        /// Best first; the first that can shows a notification.
        std::vector<NotificationPresenter*> presenters;
    };

    /// As many wait in memory; the oldest makes way for the next.
    static constexpr std::size_t maximumWaitingCount = 20;

    explicit DeviceNotificationCenter(Ports ports);

    void getNotificationSettings(std::function<void(NotificationSettings)> completion) override;
    /// Requests that come while the user is being asked wait for the same answer.
    void requestAuthorization(unsigned options, AuthorizationCompletion completion) override;
    void setDelegate(std::weak_ptr<UserNotificationCenterDelegate> delegate) override;

    /// With the application in front, `completion` is called when the delegate has completed; otherwise when
    /// the notification is shown or kept.
    void deliver(const UserNotification& notification, bool isApplicationActive,
                 Completion completion) override;

private:
    /// A notification that the delegate has stored, and nobody has shown yet.
    struct Waiting {
        UserNotification notification;
        unsigned options = 0;
    };

    void decide(AuthorizationCompletion completion);
    /// Tries the presenters from the given one on; `completion` gets whether one showed it.
    void present(const UserNotification& notification, unsigned options, std::size_t presenterIndex,
                 const std::function<void(bool)>& completion);
    void wait(Waiting waiting);
    [[nodiscard]] std::optional<PushRefusal> keep(const UserNotification& notification);
    /// Shows what waits, one after the other, as long as a presenter can.
    void showWaiting();
    void showKept();
    void scheduleShowing();
    void respond(const UserNotification& notification) const;

    const Ports m_ports;
    KeptNotifications m_kept;
    std::weak_ptr<UserNotificationCenterDelegate> m_delegate;
    /// Requests that wait for the user's decision.
    std::vector<AuthorizationCompletion> m_requests;
    /// Oldest first.
    std::deque<Waiting> m_waiting;
    /// From the moment a presenter is given one that waits until it has completed.
    bool m_isShowingWaiting = false;
};

} // namespace Platform::Push
