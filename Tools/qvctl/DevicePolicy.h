#pragma once

#include "Platform/Linux/Files/PolicyFileReading.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Qvctl {

/// The managed configuration of this device as the application finds it.
struct DevicePolicy {
    /// Where the file may be, best first.
    std::vector<std::filesystem::path> places;
    /// Of the file that counts; `missing` when none does.
    Platform::Linux::Files::PolicyFileReading reading;
    /// Files that are there and not believed, in the order of the places.
    std::vector<Platform::Linux::Files::PolicyFileReading> untrusted;
    /// Files that are there and not looked at, because the one that counts comes before them.
    std::vector<std::filesystem::path> ignored;

    /// `managedConfiguration` as for `DevicePaths`.
    static DevicePolicy read(const std::optional<std::string>& managedConfiguration,
                             Platform::PropertyLists::WithPlaces withPlaces);

    /// The reading to report: that of the file that counts, else of the first one that is not believed.
    [[nodiscard]] const Platform::Linux::Files::PolicyFileReading& bestReading() const;
    /// "A is not there", "neither A nor B is there".
    [[nodiscard]] std::string absence() const;
    /// "B is ignored, because A is there too"; empty when no file is ignored.
    [[nodiscard]] std::string ignoredText() const;
};

} // namespace Qvctl
