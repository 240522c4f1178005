#include "App/NotificationAppDelegate.h"

#include "Platform/Services.h"
#include "Platform/UserNotificationCenter.h"
#include "PushNotifications/NotificationDelegateAdapter.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "PushNotifications/RemoteNotificationHandler.h"

namespace App {

using PushNotifications::NotificationDelegateAdapter;
using PushNotifications::NotificationPayloadProcessor;
using PushNotifications::RemoteNotificationHandler;

NotificationAppDelegate::NotificationAppDelegate()
    : m_delegateAdapter(std::make_shared<NotificationDelegateAdapter>(NotificationPayloadProcessor::shared()))
{}

bool NotificationAppDelegate::didFinishLaunching()
{
    Platform::services().userNotificationCenter.setDelegate(m_delegateAdapter);
    return true;
}

void NotificationAppDelegate::didRegisterForRemoteNotifications(const Platform::Data& deviceToken)
{
    RemoteNotificationHandler::shared().didRegisterForRemoteNotifications(deviceToken);
}

void NotificationAppDelegate::didFailToRegisterForRemoteNotifications(const Platform::Error& error)
{
    RemoteNotificationHandler::shared().didFailToRegister(error);
}

void NotificationAppDelegate::didReceiveRemoteNotification(const Platform::PropertyList::Dictionary& userInfo,
                                                           FetchCompletion fetchCompletionHandler)
{
    NotificationPayloadProcessor::shared().processRemoteNotification(
        userInfo, [fetchCompletionHandler = std::move(fetchCompletionHandler)](auto result, bool isStored) {
            fetchCompletionHandler(result, isStored);
        });
}

} // namespace App
