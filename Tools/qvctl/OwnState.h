#pragma once

#include "Platform/Linux/DevicePaths.h"

#include <string>

namespace Qvctl {

/// Makes sure that a verb changes the state of the user who runs it and of nobody else: root, too, has a
/// state of its own and must not write into that of another user, who decides where its links lead. Returns
/// the name of the user. Throws `CommandError`.
std::string requireOwnState(const Platform::Linux::DevicePaths& paths);

} // namespace Qvctl
