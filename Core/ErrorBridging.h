#pragma once

#include "Platform/Error.h"

#include <exception>
#include <string>
#include <typeinfo>

namespace Core {

/// The error that `exception` stands for. A `std::system_error` carries its category and number; an exception
/// of no other known kind has its type's name as domain and the code 0.
Platform::Error bridge(const std::exception& exception);

/// "Core::DecodingError" as "Core.DecodingError".
std::string qualifiedTypeName(const std::type_info& type);

} // namespace Core
