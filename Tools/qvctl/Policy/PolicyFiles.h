#pragma once

#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/DevicePolicy.h"
#include "Tools/qvctl/Policy/LintFindings.h"

#include <string>
#include <vector>

namespace Qvctl::Policy {

/// Reads a file, a pipe, or standard input for "-", without the trust check.
Platform::Linux::Files::PolicyFileReading readNamedPolicy(const std::string& name);

/// Reads this device's configuration and warns about ignored files. Throws `CommandError` if none exists.
DevicePolicy readDevicePolicy(const Options& options);

/// Returns the problems of a file, or the single problem of a file that cannot be used.
std::vector<LintFinding> findingsOf(const Platform::Linux::Files::PolicyFileReading& reading,
                                    bool isRevealing);

/// Returns the problems of the effective values and of the files that cannot be used. If there are such
/// files, the problems of all values in the others.
std::vector<LintFinding> findingsOf(const DevicePolicy& policy, bool isRevealing);

/// Reports why a policy file cannot be used; returns the exit code.
ExitCode failUnusable(const Options& options, const Platform::Linux::Files::PolicyFileReading& reading);

} // namespace Qvctl::Policy
