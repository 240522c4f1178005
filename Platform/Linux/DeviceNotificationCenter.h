#pragma once

#include "Platform/Shell.h"
#include "Platform/UserNotificationCenter.h"

#include <vector>

namespace Platform {
class DispatchQueue;
}

namespace Platform::Linux {

class ShellState;

/// The notification centre of this device: the user's decision out of the shell's own store, notifications to
/// the delegate and to whoever can show them.
///
/// Threads: the centre's operations from any; completions and the delegate are called on the main thread, to
/// which everything else belongs. Ownership: refers to its ports; blocks that wait on the main queue refer to
/// it.
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

    explicit DeviceNotificationCenter(Ports ports) : m_ports(std::move(ports)) {}

    void getNotificationSettings(std::function<void(NotificationSettings)> completion) override;
    /// Requests that come while the user is being asked wait for the same answer.
    void requestAuthorization(unsigned options, AuthorizationCompletion completion) override;
    void setDelegate(std::weak_ptr<UserNotificationCenterDelegate> delegate) override;

    /// With the application in front it is done once the delegate is; otherwise once the notification is on
    /// view.
    void deliver(const UserNotification& notification, bool isApplicationActive,
                 Completion completion) override;

private:
    void decide(AuthorizationCompletion completion);
    /// Tries the presenters from the given one on; `completion` gets whether one showed it.
    void present(const UserNotification& notification, unsigned options, std::size_t presenterIndex,
                 const std::function<void(bool)>& completion);
    void respond(const UserNotification& notification) const;

    const Ports m_ports;
    std::weak_ptr<UserNotificationCenterDelegate> m_delegate;
    /// Those who wait for the user's decision.
    std::vector<AuthorizationCompletion> m_waiting;
};

} // namespace Platform::Linux
