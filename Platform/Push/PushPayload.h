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

/// Parses a payload, which must be a JSON object. Returns the payload, or the reason for refusing it, with
/// line and column.
std::variant<PropertyList::Dictionary, std::string> readPushPayload(std::string_view bytes);

/// The instructions of a payload to the system.
struct PushContents {
    /// Absent unless the payload has an alert that is a string or a dictionary.
    std::optional<UserNotification> notification;
    /// Whether the delegate's background callback must be called as well.
    bool isContentAvailable = false;
};

/// Reads the `aps` member of a payload delivered at `date`. Members of the wrong type count as absent.
PushContents readPushContents(const PropertyList::Dictionary& payload, Date date);

} // namespace Platform::Push
