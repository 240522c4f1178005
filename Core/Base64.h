#pragma once

#include <string>
#include <string_view>

namespace Core {

/// Standard base64 (RFC 4648 section 4) with padding and without line breaks.
std::string base64Encoded(std::string_view bytes);

} // namespace Core
