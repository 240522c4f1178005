#pragma once

#include "Platform/UserNotificationCenter.h"

namespace PushNotifications {

class NotificationPayloadProcessor;

/// Passes notifications to the processor: when they are shown, and again when the user responds.
///
/// Threads: main; calls completions before the callbacks return. Ownership: refers to the processor.
class NotificationDelegateAdapter final : public Platform::UserNotificationCenterDelegate {
public:
    explicit NotificationDelegateAdapter(NotificationPayloadProcessor& processor) : m_processor(processor) {}

    /// Requests banner, list, sound and badge.
    void willPresent(const Platform::UserNotification& notification,
                     const PresentationCompletion& completion) override;
    /// Treats taps, actions and dismissals alike.
    void didReceive(const Platform::UserNotificationResponse& response,
                    const std::function<void()>& completion) override;

private:
    NotificationPayloadProcessor& m_processor;
};

} // namespace PushNotifications
