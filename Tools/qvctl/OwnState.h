#pragma once

#include "Platform/Linux/DevicePaths.h"

#include <string>

namespace Qvctl {

/// Throws `CommandError` unless this user owns the state folder; returns the user's name. Even root must not
/// write into another user's folder, whose symbolic links could redirect the write.
std::string requireOwnState(const Platform::Linux::DevicePaths& paths);

} // namespace Qvctl
