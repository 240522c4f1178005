#pragma once

#include "Platform/UserNotificationCenter.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace Platform {
class UserDefaults;
} // namespace Platform

namespace Platform::Push {

/// A stored, first-in, first-out list of the notifications that cannot be shown yet.
///
/// Threads: one at a time. Ownership: references the store. Errors: invalid entries count as missing, and the
/// next change drops them.
class PendingNotifications {
public:
    static constexpr std::size_t maximumCount = 100;

    enum class Addition { added, full, notStored };

    explicit PendingNotifications(UserDefaults& store) : m_store(store) {}

    Addition add(const UserNotification& notification);
    /// Absent if the list is empty.
    [[nodiscard]] std::optional<UserNotification> oldest() const;
    /// Returns whether the change is stored.
    bool removeOldest();

private:
    [[nodiscard]] std::vector<UserNotification> load() const;
    [[nodiscard]] bool save(const std::vector<UserNotification>& all);

    UserDefaults& m_store;
};

} // namespace Platform::Push
