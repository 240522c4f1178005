#pragma once

#include "Platform/Application.h"

#include <memory>

namespace PushNotifications {
class NotificationDelegateAdapter;
}

namespace App {

/// Forwards the application's notification callbacks to the handlers in PushNotifications.
///
/// Threads: main. Ownership: owns the notification center's delegate, which the center holds weakly.
class NotificationAppDelegate final : public Platform::ApplicationDelegate {
public:
    NotificationAppDelegate();

    /// Sets the notification center's delegate. Always returns true.
    bool didFinishLaunching() override;
    void didRegisterForRemoteNotifications(const Platform::Data& deviceToken) override;
    void didFailToRegisterForRemoteNotifications(const Platform::Error& error) override;
    void didReceiveRemoteNotification(const Platform::PropertyList::Dictionary& userInfo,
                                      FetchCompletion fetchCompletionHandler) override;

private:
    const std::shared_ptr<PushNotifications::NotificationDelegateAdapter> m_delegateAdapter;
};

} // namespace App
