#pragma once

#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Tools/qvctl/Commands.h"

#include <string>

namespace Qvctl::Policy {

/// Reads a policy that the command line names, trusted or not: a file, a pipe, or standard input for "-".
Platform::Linux::Files::PolicyFileReading readNamedPolicy(const std::string& name);

/// Reports why a policy is not good; returns the exit code for it.
ExitCode failUnusable(const Options& options, const Platform::Linux::Files::PolicyFileReading& reading);

} // namespace Qvctl::Policy
