#pragma once

#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Platform/PropertyList.h"
#include "Platform/Storage/PathWalk.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace Platform::Linux::Files {

/// Where a managed configuration may be: a policy file, and fragments whose keys replace the file's.
struct PolicyPlaces {
    /// Absolute paths where the policy file may be, in order of precedence; may be empty.
    std::vector<std::filesystem::path> files;
    /// Absolute path of the folder of fragments; empty if there are none.
    std::filesystem::path fragments = {};
};

/// More fragments than this are not read.
inline constexpr std::size_t maximumFragmentCount = 100;

/// Returns whether a file with this name in the folder is a fragment: NAME.plist or NAME.json, not hidden.
bool isFragmentName(std::string_view name);

/// The fragments in a folder, not read yet.
struct FragmentFolder {
    struct Entry {
        std::string name;
        bool isLink;
    };
    /// The steps to the folder; see `Storage::walkPath`.
    std::vector<Storage::PathStep> steps;
    /// In byte order; empty if the folder cannot be read.
    std::vector<Entry> entries;
    /// The errno value if the folder cannot be read.
    int error = 0;
};

/// Lists the entries of `folder`, an absolute path, whose names are those of fragments.
FragmentFolder listFragments(const std::filesystem::path& folder);

/// The fragments of a folder.
struct FragmentReadings {
    /// About the folder: `good` if `files` is complete, `missing`, or the error.
    PolicyFileReading folder;
    /// In byte order of the names, which is ascending precedence. None is `missing`.
    std::vector<PolicyFileReading> files;
};

/// Reads all fragments in `folder`, an absolute path. Each must be trusted by itself. Everybody could add a
/// fragment to a folder that others can write, so unlike the folders above it, it must not be sticky.
FragmentReadings readFragments(const std::filesystem::path& folder,
                               PropertyLists::WithPlaces withPlaces = PropertyLists::WithPlaces::no);

/// Returns a dictionary with the keys of all `dictionaries`. Of equal keys, the last one has its value, which
/// replaces the others completely.
PropertyList combined(const std::vector<PropertyList>& dictionaries);

} // namespace Platform::Linux::Files
