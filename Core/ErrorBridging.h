#pragma once

#include "Platform/Error.h"

#include <exception>
#include <string>
#include <typeinfo>

namespace Core {

/// Converts an exception to an `Error`. A `std::system_error` keeps its category (as the domain) and code; an
/// unknown type gets its type name as the domain and code 0.
Platform::Error bridge(const std::exception& exception);

/// Returns the type name with dots, for example "Core.DecodingError".
std::string qualifiedTypeName(const std::type_info& type);

} // namespace Core
