#pragma once

#include "Platform/Linux/PropertyListReader.h"

#include <filesystem>
#include <string_view>
#include <vector>

namespace Qvctl {

/// Puts `bytes` in force as the managed configuration: replaces the candidate of that format in one step,
/// then removes the other ones, which would hide or shadow it. Answers the file written. Throws
/// `std::system_error` naming the file or folder; then nothing has changed.
std::filesystem::path installPolicy(const std::vector<std::filesystem::path>& candidates,
                                    std::string_view bytes, Platform::Linux::PropertyListFormat format);

/// Removes every candidate that is there; answers which. Throws `std::system_error`.
std::vector<std::filesystem::path> removePolicy(const std::vector<std::filesystem::path>& candidates);

} // namespace Qvctl
