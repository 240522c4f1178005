#pragma once

#include "Platform/PropertyList.h"
#include "Platform/UserNotificationCenter.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Platform::Push {

/// In bytes.
inline constexpr std::size_t maximumPayloadSize = 4096;

/// The payload that `bytes` hold: a JSON object. Else the reason for which it is refused, with the place.
std::variant<PropertyList::Dictionary, std::string> readPushPayload(std::string_view bytes);

/// What a payload asks of the system.
struct PushContents {
    /// Absent for a payload without an alert, a text or a dictionary.
    std::optional<UserNotification> notification;
    /// Whether the application is to be called in the background as well.
    bool isContentAvailable = false;
};

/// Reads the member "aps" of a payload that was delivered at `date`. What has the wrong type counts as
/// absent.
PushContents readPushContents(const PropertyList::Dictionary& payload, Date date);

} // namespace Platform::Push
