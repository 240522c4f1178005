#pragma once

#include "Platform/PropertyList.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

namespace Platform::Push {

/// In bytes.
inline constexpr std::size_t maximumPayloadSize = 4096;

/// The payload that `bytes` hold: a JSON object. Else the reason for which it is refused, with the place.
std::variant<PropertyList::Dictionary, std::string> readPushPayload(std::string_view bytes);

} // namespace Platform::Push
