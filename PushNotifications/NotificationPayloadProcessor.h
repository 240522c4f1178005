#pragma once

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

/// One notification, processed.
struct ProcessedNotificationPayload {
    std::optional<std::string> title;
    std::optional<std::string> body;
    /// The whole payload, unchanged.
    Platform::PropertyList::Dictionary userInfo;
    Platform::Date date;
};

/// Turns every notification that reaches the application into a record: stores it in the history, announces
/// it, logs it. One that is processed twice is stored twice.
///
/// Threads: the main thread; entries must not overlap. Announcements come later, on the main queue.
/// Errors: a history that cannot be read counts as empty and is replaced by the next record. A record that
/// cannot be stored is announced and logged all the same; the caller learns of it.
class NotificationPayloadProcessor {
public:
    /// Posted on the main queue without a sender; user info "payload" is a `ProcessedNotificationPayload`.
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

    /// The processor of this process, made on first use and never destroyed.
    static NotificationPayloadProcessor& shared();

    /// A payload from the push service. Calls `fetchCompletionHandler` once, with `newData` and whether the
    /// record is stored, before it returns.
    void
    processRemoteNotification(const Platform::PropertyList::Dictionary& userInfo,
                              const Platform::ApplicationDelegate::FetchCompletion& fetchCompletionHandler);
    /// A notification that is shown, or that the user answered. Returns whether the record is stored.
    bool process(const Platform::UserNotification& notification);

    /// The newest `limit` records, newest first. A negative limit ends the process.
    [[nodiscard]] std::vector<Summary> recentPayloadSummaries(std::int64_t limit) const;
    /// The same of a store that another process works on.
    [[nodiscard]] static std::vector<Summary> payloadSummaries(const Platform::UserDefaults& standard,
                                                               std::int64_t limit);

private:
    struct StoredPayloadItem {
        std::optional<std::string> title;
        std::optional<std::string> body;
        Platform::Date date;
        /// The names of the payload's members; never their values.
        std::vector<std::string> userInfoKeys;
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
