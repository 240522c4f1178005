#pragma once

#include "Platform/UserDefaults.h"
#include "Platform/UserNotificationCenter.h"

#include <string_view>

namespace Platform::Push {

/// The system's own state for the application, in a separate store: the user's decision about notifications
/// and the push registration.
///
/// Threads: any. Errors: those of the store.
class ShellState {
public:
    explicit ShellState(UserDefaults& store) : m_store(store) {}

    /// Returns the stored decision, or `notDetermined` if it is missing or invalid. Reads the store on every
    /// call, because other processes change it as well.
    [[nodiscard]] AuthorizationStatus authorizationStatus() const;
    /// Returns whether the decision is stored.
    bool setAuthorizationStatus(AuthorizationStatus status);

    [[nodiscard]] UserDefaults& store() const { return m_store; }

private:
    static constexpr std::string_view authorizationKey = "NotificationAuthorization";

    UserDefaults& m_store;
};

} // namespace Platform::Push
