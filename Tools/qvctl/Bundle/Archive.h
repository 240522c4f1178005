#pragma once

#include "Tools/qvctl/Bundle/BundleContent.h"

#include <string>
#include <vector>

namespace Qvctl::Bundle {

/// Returns a compressed tar archive with these files, whose names have at most 100 bytes. Source: POSIX, pax,
/// "ustar Interchange Format"; RFC 1952.
std::string makeArchive(const std::vector<BundleFile>& files);

} // namespace Qvctl::Bundle
