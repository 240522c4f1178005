#pragma once

#include "Platform/Application.h"

#include <memory>

namespace PushNotifications {
class NotificationDelegateAdapter;
}

namespace App {

/// Hears from the runtime what has to do with notifications, and hands it on, unchanged, to those who know
/// what to do with it.
///
/// Threads: main. Ownership: keeps the delegate of the notification centre, which the centre holds weakly.
class NotificationAppDelegate final : public Platform::ApplicationDelegate {
public:
    NotificationAppDelegate();

    /// Has the notification centre call our delegate. Always true.
    bool didFinishLaunching() override;
    void didRegisterForRemoteNotifications(const Platform::Data& deviceToken) override;
    void didFailToRegisterForRemoteNotifications(const Platform::Error& error) override;
    void didReceiveRemoteNotification(const Platform::PropertyList::Dictionary& userInfo,
                                      FetchCompletion fetchCompletionHandler) override;

private:
    const std::shared_ptr<PushNotifications::NotificationDelegateAdapter> m_delegateAdapter;
};

} // namespace App
