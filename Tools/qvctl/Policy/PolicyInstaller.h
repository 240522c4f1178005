#pragma once

#include "Platform/PropertyLists/PropertyListReader.h"

#include <filesystem>
#include <string_view>
#include <vector>

namespace Qvctl::Policy {

/// The result of installing a policy file.
struct Installation {
    std::filesystem::path file;
    /// False if the file already had exactly these bytes, owner and mode, and nothing was written.
    bool isChanged = true;
    /// The first folder above the file that other users cannot enter, so that their apps do not find the
    /// file. Empty if they can enter all folders, or if this user is not root.
    std::filesystem::path closedFolder;
};

// Both functions first check, by the app's rules, that only root and this user can change the policy file's
// folder and those above it. Errors: `CommandError` if others can, or if a candidate is a folder;
// `std::system_error`, which names the file or folder, if an operation fails. In both cases nothing was
// changed. All candidates must be in one folder.

/// Makes `bytes` the managed configuration: atomically replaces the candidate of that format, then removes
/// the other candidates. The file belongs to this user; its mode is 0644 for root and 0600 for others.
/// Missing folders get mode 0755 or 0700, and /etc/quorvane-mdm is reset to 0755. Ignores the umask.
Installation installPolicy(const std::vector<std::filesystem::path>& candidates, std::string_view bytes,
                           Platform::PropertyLists::PropertyListFormat format);

/// Removes the candidates that exist and returns them. Removes no folder.
std::vector<std::filesystem::path> removePolicy(const std::vector<std::filesystem::path>& candidates);

} // namespace Qvctl::Policy
