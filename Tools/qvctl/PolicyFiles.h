#pragma once

#include "Platform/Linux/PolicyFileReading.h"
#include "Tools/qvctl/Commands.h"

#include <string>

namespace Qvctl {

/// Reads a policy that the command line names, trusted or not: a file, a pipe, or standard input for "-".
Platform::Linux::PolicyFileReading readNamedPolicy(const std::string& name);

/// Reports why a policy is not good; returns the exit code for it.
ExitCode failUnusable(const Options& options, const Platform::Linux::PolicyFileReading& reading);

} // namespace Qvctl
