#include "Core/Base64.h"

#include "Platform/Encoding.h"

#include <span>

namespace Core {

std::string base64Encoded(std::string_view bytes)
{
    return Platform::base64Text(std::as_bytes(std::span(bytes)), Platform::Base64Form::standard);
}

} // namespace Core
