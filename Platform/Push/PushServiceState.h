#pragma once

#include "Platform/Date.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace Platform {
class UserDefaults;
} // namespace Platform

namespace Platform::Push {

/// What brings pushes to this device.
enum class PushServiceKind {
    unifiedPush,
    local,
    off,
    /// There is no session bus for UnifiedPush.
    unavailable,
};

/// "UnifiedPush", "local", "off" or "unavailable".
std::string_view pushServiceName(PushServiceKind kind);

/// The push service since the last start of the application, for diagnosis from another process.
struct PushServiceState {
    struct Failure {
        /// A `PushRegistrationErrorCode`.
        std::int64_t code = 0;
        Date time;

        friend bool operator==(const Failure&, const Failure&) = default;
    };

    PushServiceKind kind = PushServiceKind::unifiedPush;
    /// Why the last registration failed; absent when it succeeded, and before the first.
    std::optional<Failure> failure = {};

    /// Absent when nothing is stored, or something that makes no sense.
    static std::optional<PushServiceState> stored(const UserDefaults& store);
    /// Writes only what differs from the stored state. Returns whether this is the stored state.
    bool write(UserDefaults& store) const;

    friend bool operator==(const PushServiceState&, const PushServiceState&) = default;
};

} // namespace Platform::Push
