#pragma once

#include "Core/TextList.h"
#include "Platform/Application.h"
#include "Platform/Date.h"
#include "Platform/PropertyList.h"
#include "Platform/UserNotificationCenter.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Core {
class Logger;
}
namespace Platform {
class Clock;
class DispatchQueue;
class NotificationCenter;
class UserDefaults;
class UserDefaultsDomains;
} // namespace Platform

namespace PushNotifications {

/// A processed notification.
struct ProcessedNotificationPayload {
    std::optional<std::string> title;
    std::optional<std::string> body;
    /// The whole payload.
    Platform::PropertyList::Dictionary userInfo;
    Platform::Date date;
};

/// Adds received notifications to the history, posts an in-process notification for each and logs it. A
/// notification that is processed twice is stored twice.
///
/// Threads: main; calls must not overlap. In-process notifications are posted later, on the main queue.
/// Errors: an unreadable history counts as empty and is overwritten by the next record. A record that cannot
/// be stored is still posted and logged; the caller gets `false`.
class NotificationPayloadProcessor {
public:
    /// The sender is null; "payload" in the user info is a `ProcessedNotificationPayload`.
    static constexpr std::string_view pushNotificationDidProcessPayload = "PushNotificationDidProcessPayload";

    struct Summary {
        std::optional<std::string> title;
        std::optional<std::string> body;
        Platform::Date date;

        friend bool operator==(const Summary&, const Summary&) = default;
    };

    struct Ports {
        Core::Logger& logger;
        Platform::UserDefaultsDomains& userDefaults;
        Platform::NotificationCenter& notificationCenter;
        Platform::DispatchQueue& mainQueue;
        const Platform::Clock& clock;
    };

    explicit NotificationPayloadProcessor(const Ports& ports) : m_ports(ports) {}

    /// Returns the processor of this process, created on first use and never destroyed.
    static NotificationPayloadProcessor& shared();

    /// Processes the payload of a push. Before returning, calls `fetchCompletionHandler` with `newData` and
    /// whether the record was stored.
    void
    processRemoteNotification(const Platform::PropertyList::Dictionary& userInfo,
                              const Platform::ApplicationDelegate::FetchCompletion& fetchCompletionHandler);
    /// Processes a shown or answered notification. Returns whether the record was stored.
    bool process(const Platform::UserNotification& notification);

    /// Returns at most `limit` records, newest first. Aborts if `limit` is negative.
    [[nodiscard]] std::vector<Summary> recentPayloadSummaries(std::int64_t limit) const;
    /// Like `recentPayloadSummaries()`, for the history in `standard`, which another process may be writing.
    [[nodiscard]] static std::vector<Summary> payloadSummaries(const Platform::UserDefaults& standard,
                                                               std::int64_t limit);

private:
    struct StoredPayloadItem {
        std::optional<std::string> title;
        std::optional<std::string> body;
        Platform::Date date;
        /// Names of the payload's top-level members, without their values.
        Core::TextList userInfoKeys;
    };

    [[nodiscard]] ProcessedNotificationPayload
    makePayload(const Platform::PropertyList::Dictionary& userInfo) const;
    [[nodiscard]] bool store(const ProcessedNotificationPayload& payload);
    [[nodiscard]] static std::vector<StoredPayloadItem>
    loadStoredItems(const Platform::UserDefaults& standard);
    [[nodiscard]] bool saveStoredItems(const std::vector<StoredPayloadItem>& items);
    void postProcessedPayload(const ProcessedNotificationPayload& payload);

    static constexpr std::size_t maxStoredPayloads = 100;

    const Ports m_ports;
};

} // namespace PushNotifications
