#pragma once

#include "Tools/qvctl/Bundle/Redaction.h"

#include <boost/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace Qvctl::Bundle {

/// Returns the versions of qvctl, the operating system, the kernel and the installed packages that matter,
/// and the kind of desktop. Does not name the device.
boost::json::object describePlatform();

/// Lists the files below the folders, one per line: mode, owner (root, this user or other), size, time and
/// path. Does not follow links.
std::string listFiles(const std::vector<std::filesystem::path>& folders, const Redaction& redaction);

} // namespace Qvctl::Bundle
