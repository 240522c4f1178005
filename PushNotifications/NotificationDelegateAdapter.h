#pragma once

#include "Platform/UserNotificationCenter.h"

namespace PushNotifications {

class NotificationPayloadProcessor;

/// What the notification centre calls while the application runs: hands every notification to the processor,
/// first when it is shown and again when the user answers it.
///
/// Threads: main; completions are called before the callbacks return. Ownership: refers to the processor.
class NotificationDelegateAdapter final : public Platform::UserNotificationCenterDelegate {
public:
    explicit NotificationDelegateAdapter(NotificationPayloadProcessor& processor) : m_processor(processor) {}

    /// Shown as banner, in the list, with sound and badge.
    void willPresent(const Platform::UserNotification& notification,
                     const PresentationCompletion& completion) override;
    /// A tap, an action and a dismissal are all alike.
    void didReceive(const Platform::UserNotificationResponse& response,
                    const std::function<void()>& completion) override;

private:
    NotificationPayloadProcessor& m_processor;
};

} // namespace PushNotifications
