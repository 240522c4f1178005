#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Platform::Linux {

/// The identifier of the application on this system; also the name of its own defaults domain.
inline constexpr std::string_view applicationIdentifier = "com.quorvane.mdm";

/// The name of the application's process.
inline constexpr std::string_view programName = "quorvane-mdm";

/// Under which the application's lines stand in the journal.
inline constexpr std::string_view journalIdentifier = "quorvane-mdm";

/// Where device management delivers the policy unless it is told otherwise.
inline constexpr std::string_view policyFolder = "/etc/quorvane-mdm";

/// The policy path given by the user cannot be that of a file.
class InvalidPolicyPath : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Where the device keeps what belongs to the application.
struct DevicePaths {
    /// Holds every store; made on first use.
    std::filesystem::path stateFolder;
    /// Where device management may put its file, best first; absolute.
    std::vector<std::filesystem::path> managedConfigurationCandidates;

    /// The socket of the local push service; outside the state folder, in the user's folder for such things.
    std::filesystem::path pushSocket = {};

    [[nodiscard]] std::filesystem::path standardDefaults() const;
    /// What the system's side remembers of the application.
    [[nodiscard]] std::filesystem::path shellState() const { return stateFolder / "shell.sqlite"; }
    [[nodiscard]] std::filesystem::path suite(std::string_view name) const;
    [[nodiscard]] std::filesystem::path instanceLock() const { return stateFolder / "instance.lock"; }

    /// State: XDG_DATA_HOME, by default ~/.local/share. Socket: XDG_RUNTIME_DIR, by default the state folder.
    /// Policy: `managedConfiguration`, the value of the command-line option, by default
    /// QUORVANE_MANAGED_CONFIGURATION, by default the system's policy folder. An empty variable counts as
    /// unset. Throws `InvalidPolicyPath`, and `std::runtime_error` when the user has no home folder.
    static DevicePaths fromEnvironment(const std::optional<std::string>& managedConfiguration);
    /// Returns `managedConfigurationCandidates` alone, without the need for a home folder. Throws
    /// `InvalidPolicyPath`.
    static std::vector<std::filesystem::path>
    policyCandidates(const std::optional<std::string>& managedConfiguration);
};

} // namespace Platform::Linux
