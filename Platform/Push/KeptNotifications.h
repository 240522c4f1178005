#pragma once

#include "Platform/UserNotificationCenter.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace Platform {
class UserDefaults;
} // namespace Platform

namespace Platform::Push {

/// Notifications that nothing can show yet, kept in a store until something can, in the order in which they
/// came.
///
/// Threads: one at a time. Ownership: refers to the store. Errors: what cannot be read counts as missing, and
/// is dropped by the next change.
class KeptNotifications {
public:
    static constexpr std::size_t maximumCount = 100;

    enum class Addition { kept, full, notStored };

    explicit KeptNotifications(UserDefaults& store) : m_store(store) {}

    Addition add(const UserNotification& notification);
    /// Absent when there is none.
    [[nodiscard]] std::optional<UserNotification> oldest() const;
    /// Returns whether it is no longer stored.
    bool removeOldest();

private:
    [[nodiscard]] std::vector<UserNotification> load() const;
    [[nodiscard]] bool save(const std::vector<UserNotification>& all);

    UserDefaults& m_store;
};

} // namespace Platform::Push
