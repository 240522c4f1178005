#pragma once

#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Tools/qvctl/Commands.h"

#include <string>

namespace Qvctl::Policy {

/// Reads a file, a pipe, or standard input for "-", without the trust check.
Platform::Linux::Files::PolicyFileReading readNamedPolicy(const std::string& name);

/// Reports why a policy file cannot be used; returns the exit code.
ExitCode failUnusable(const Options& options, const Platform::Linux::Files::PolicyFileReading& reading);

} // namespace Qvctl::Policy
