#include "Platform/Error.h"

#include <cstring>

namespace Platform {

std::string errorText(int errorNumber)
{
    // Unlike strerror(3), this is always English.
    const char* text = ::strerrordesc_np(errorNumber);
    return text != nullptr ? text : "error " + std::to_string(errorNumber);
}

} // namespace Platform
