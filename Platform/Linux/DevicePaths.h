#pragma once

#include "Platform/Linux/Files/PolicyFragments.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Platform::Linux {

/// The application's identifier; also the name of its standard defaults domain.
inline constexpr std::string_view applicationIdentifier = "com.quorvane.mdm";

/// The application's process name.
inline constexpr std::string_view programName = "quorvane-mdm";

/// The SYSLOG_IDENTIFIER of the application's journal entries.
inline constexpr std::string_view journalIdentifier = "quorvane-mdm";

/// The default folder of the policy file.
inline constexpr std::string_view policyFolder = "/etc/quorvane-mdm";

/// The name of the folder of fragments in `policyFolder`.
inline constexpr std::string_view fragmentFolderName = "managed.d";

/// The path of a policy file or folder of fragments given by the user is not valid.
class InvalidPolicyPath : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The paths of the application's files on this device.
struct DevicePaths {
    /// The folder of all stores; created on first use.
    std::filesystem::path stateFolder;
    Files::PolicyPlaces policy;

    /// The socket of the local push service, in the user's runtime folder.
    std::filesystem::path pushSocket = {};

    [[nodiscard]] std::filesystem::path standardDefaults() const;
    /// The store for the permission, the push registration and network records.
    [[nodiscard]] std::filesystem::path shellState() const { return stateFolder / "shell.sqlite"; }
    [[nodiscard]] std::filesystem::path suite(std::string_view name) const;
    [[nodiscard]] std::filesystem::path instanceLock() const { return stateFolder / "instance.lock"; }

    /// Returns the state folder of a user who has this home folder and does not set XDG_DATA_HOME.
    static std::filesystem::path defaultStateFolder(const std::filesystem::path& home);

    /// Returns the paths for this environment. The state folder is in XDG_DATA_HOME, by default
    /// ~/.local/share. The socket is in XDG_RUNTIME_DIR, by default in the state folder. The policy is
    /// `managedConfiguration`, the value of the command-line option, else QUORVANE_MANAGED_CONFIGURATION,
    /// else in `policyFolder`. A named file has no fragments; a named folder, or a name that ends with "/",
    /// has only fragments. An empty variable counts as unset. Throws `InvalidPolicyPath`, and
    /// `std::runtime_error` if the user has no home folder.
    static DevicePaths fromEnvironment(const std::optional<std::string>& managedConfiguration);
    /// Returns only `policy`; needs no home folder. Throws `InvalidPolicyPath`.
    static Files::PolicyPlaces policyPlaces(const std::optional<std::string>& managedConfiguration);
};

} // namespace Platform::Linux
