#pragma once

#include "Platform/UserDefaults.h"
#include "Platform/UserNotificationCenter.h"

#include <string_view>

namespace Platform::Push {

/// What the system's side of the device remembers of the application, in a store of its own: the user's
/// decision about notifications, and whatever the push services need to be the same ones after a restart.
///
/// Threads: any. Errors: those of the store.
class ShellState {
public:
    explicit ShellState(UserDefaults& store) : m_store(store) {}

    /// Read anew each time: other processes decide as well. Undetermined when nothing sensible is stored.
    [[nodiscard]] AuthorizationStatus authorizationStatus() const;
    /// Returns whether it is stored.
    bool setAuthorizationStatus(AuthorizationStatus status);

    [[nodiscard]] UserDefaults& store() const { return m_store; }

private:
    static constexpr std::string_view authorizationKey = "NotificationAuthorization";

    UserDefaults& m_store;
};

} // namespace Platform::Push
