#include "PushNotifications/NotificationDelegateAdapter.h"

#include "PushNotifications/NotificationPayloadProcessor.h"

namespace PushNotifications {

namespace Options = Platform::PresentationOptions;

void NotificationDelegateAdapter::willPresent(const Platform::UserNotification& notification,
                                              const PresentationCompletion& completion)
{
    const bool isStored = m_processor.process(notification);
    completion(Options::badge | Options::sound | Options::list | Options::banner, isStored);
}

void NotificationDelegateAdapter::didReceive(const Platform::UserNotificationResponse& response,
                                             const std::function<void()>& completion)
{
    m_processor.process(response.notification);
    completion();
}

} // namespace PushNotifications
