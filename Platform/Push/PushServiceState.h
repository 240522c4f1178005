#pragma once

#include "Platform/Date.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace Platform {
class UserDefaults;
} // namespace Platform

namespace Platform::Push {

/// The push service in use.
enum class PushServiceKind {
    unifiedPush,
    local,
    off,
    /// There is no session bus for UnifiedPush.
    unavailable,
};

/// Returns "UnifiedPush", "local", "off" or "unavailable".
std::string_view pushServiceName(PushServiceKind kind);

/// The push service and its last failure since the application started, for diagnosis by another process.
struct PushServiceState {
    struct Failure {
        /// A `PushRegistrationErrorCode`.
        std::int64_t code = 0;
        Date time;

        friend bool operator==(const Failure&, const Failure&) = default;
    };

    PushServiceKind kind = PushServiceKind::unifiedPush;
    /// The error of the last registration; absent if it succeeded or there was none.
    std::optional<Failure> failure = {};

    /// Returns the stored state; absent if it is missing or invalid.
    static std::optional<PushServiceState> stored(const UserDefaults& store);
    /// Writes the state unless it is already stored. Returns whether it is stored.
    bool write(UserDefaults& store) const;

    friend bool operator==(const PushServiceState&, const PushServiceState&) = default;
};

} // namespace Platform::Push
