#pragma once

#include "Platform/Linux/Files/PolicyFragments.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qvctl {

/// This device's managed configuration, chosen and read as the app does it at its start.
struct DevicePolicy {
    using Reading = Platform::Linux::Files::PolicyFileReading;

    Platform::Linux::Files::PolicyPlaces places;
    /// The whole configuration: the policy file with the keys of the fragments on top. If a file cannot be
    /// used, the error of that file. Its path is that of the policy file, or of the folder if there are only
    /// fragments.
    Reading reading;
    /// Policy files that exist but are not trusted, in order of precedence.
    std::vector<Reading> untrusted;
    /// Policy files that are not read because another one takes precedence.
    std::vector<std::filesystem::path> ignored;
    /// The policy file alone; absent if there is none.
    std::optional<Reading> file;
    /// In byte order of their names.
    std::vector<Reading> fragments;
    /// Why the fragments cannot be listed; absent if they can.
    std::optional<Reading> folderProblem;

    /// `managedConfiguration` overrides the places, see `DevicePaths`.
    static DevicePolicy read(const std::optional<std::string>& managedConfiguration,
                             Platform::PropertyLists::WithPlaces withPlaces);
    /// Returns a configuration that consists of this file.
    static DevicePolicy ofFile(Reading file);

    /// The reading to report: `reading`, or the first untrusted one if that is missing.
    [[nodiscard]] const Reading& bestReading() const;
    /// The files that cannot be used, and the folder if it cannot be listed.
    [[nodiscard]] std::vector<const Reading*> unusable() const;
    /// The files that set `key`. The last one has the effective value, which replaces those of the others.
    [[nodiscard]] std::vector<std::filesystem::path> sourcesOf(std::string_view key) const;
    [[nodiscard]] std::vector<std::filesystem::path> fragmentPaths() const;
    /// "A does not exist" or "neither A nor B exists".
    [[nodiscard]] std::string absence() const;
    /// "B is ignored because A exists"; empty if no file is ignored.
    [[nodiscard]] std::string ignoredText() const;

private:
    void findIgnored();
    [[nodiscard]] Reading combinedReading() const;
};

/// The names of `paths`, without their folders.
std::vector<std::filesystem::path> fileNames(const std::vector<std::filesystem::path>& paths);

/// "FILE", or "FILE, which replaces the value in OTHER"; empty without `sources`.
std::string sourceText(const std::vector<std::filesystem::path>& sources);

} // namespace Qvctl
