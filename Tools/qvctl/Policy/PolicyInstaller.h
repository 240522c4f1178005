#pragma once

#include "Platform/PropertyLists/PropertyListReader.h"

#include <filesystem>
#include <string_view>
#include <vector>

namespace Qvctl::Policy {

/// What came of installing a policy.
struct Installation {
    std::filesystem::path file;
    /// False: the file held exactly these bytes already and nothing was written.
    bool isChanged = true;
    /// The first folder on the way to the file that other users cannot enter, so that their applications do
    /// not find it; empty when there is none. Only for root.
    std::filesystem::path closedFolder;
};

// Both functions first check that nobody but root and this user can change the folder of the policy or
// anything on the way to it, by the rules of the application. They throw `CommandError` when that does not
// hold or a folder stands in the place of a policy file, and `std::system_error` naming the file or folder
// when the system refuses something; nothing has been changed then. All candidates are in one folder.

/// Makes `bytes` the managed configuration: replaces the candidate of that format in one step, then removes
/// the other ones, which would hide it or be hidden. The file belongs to this user and has mode 0644 for root
/// and 0600 for others; missing folders are made with 0755 or 0700, and the folder of the system's policy
/// gets 0755 again. The umask does not matter.
Installation installPolicy(const std::vector<std::filesystem::path>& candidates, std::string_view bytes,
                           Platform::PropertyLists::PropertyListFormat format);

/// Removes every candidate that is there and returns which. Removes no folder.
std::vector<std::filesystem::path> removePolicy(const std::vector<std::filesystem::path>& candidates);

} // namespace Qvctl::Policy
