#pragma once

#include "Tools/qvctl/Commands.h"

#include <string>
#include <vector>

namespace Qvctl::Bundle {

/// A file of a support bundle.
struct BundleFile {
    std::string name;
    /// What is in it, as a noun phrase.
    const char* description;
    std::string content;
};

/// Collects the files of a support bundle: what this user's app and the device report, without configured or
/// received values and without the names of the user and the home folder. Changes nothing, uses no network
/// and reads at most the newest 2000 lines of the log.
///
/// Errors: a problem with one file is its content; throws `std::system_error` if there are no random numbers.
std::vector<BundleFile> collectBundle(const Options& options);

} // namespace Qvctl::Bundle
