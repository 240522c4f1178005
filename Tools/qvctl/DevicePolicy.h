#pragma once

#include "Platform/Linux/Files/PolicyFileReading.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Qvctl {

/// This device's policy file, chosen and read as the app does it.
struct DevicePolicy {
    /// Where the file may be, in order of precedence.
    std::vector<std::filesystem::path> candidates;
    /// The first trusted file; `missing` if no file is trusted.
    Platform::Linux::Files::PolicyFileReading reading;
    /// Existing files that are not trusted, in order of precedence.
    std::vector<Platform::Linux::Files::PolicyFileReading> untrusted;
    /// Existing files that are not read because `reading` takes precedence.
    std::vector<std::filesystem::path> ignored;

    /// `managedConfiguration` overrides the candidates, see `DevicePaths`.
    static DevicePolicy read(const std::optional<std::string>& managedConfiguration,
                             Platform::PropertyLists::WithPlaces withPlaces);

    /// The reading to report: `reading`, or the first untrusted one if that is missing.
    [[nodiscard]] const Platform::Linux::Files::PolicyFileReading& bestReading() const;
    /// "A does not exist" or "neither A nor B exists".
    [[nodiscard]] std::string absence() const;
    /// "B is ignored because A exists"; empty if no file is ignored.
    [[nodiscard]] std::string ignoredText() const;
};

} // namespace Qvctl
