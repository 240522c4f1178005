#include "Platform/Linux/DevicePaths.h"

#include <cstdlib>
#include <pwd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Platform::Linux {

namespace {

namespace fs = std::filesystem;

/// Returns the variable's value; absent if unset or empty.
std::optional<std::string> environment(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? std::optional<std::string>(value) : std::nullopt;
}

/// Returns the folder in the variable; absent if unset, empty or relative. XDG's rules for base directories
/// require that relative paths are ignored.
std::optional<fs::path> folderFromEnvironment(const char* name)
{
    const auto folder = environment(name);
    return folder && fs::path(*folder).is_absolute() ? std::optional<fs::path>(*folder) : std::nullopt;
}

constexpr const char* stateFolderName = "quorvane-mdm";

fs::path userStateFolder()
{
    if (const auto folder = folderFromEnvironment("XDG_DATA_HOME"))
        return *folder / stateFolderName;
    if (const auto home = folderFromEnvironment("HOME"))
        return DevicePaths::defaultStateFolder(*home);
    if (const passwd* user = ::getpwuid(::geteuid()); user != nullptr && *user->pw_dir == '/')
        return DevicePaths::defaultStateFolder(user->pw_dir);
    throw std::runtime_error("this user has no home folder; set HOME or XDG_DATA_HOME to an absolute path");
}

/// Returns the places of the file or folder with this name.
Files::PolicyPlaces namedPlaces(const std::string& name)
{
    std::error_code error;
    const fs::path path = fs::absolute(name, error);
    if (error)
        throw InvalidPolicyPath(name + " is relative to a folder that no longer exists (" + error.message() +
                                "); use an absolute path");
    if (!path.has_filename())
        return {.files = {}, .fragments = path.has_relative_path() ? path.parent_path() : path};
    if (fs::is_directory(path, error))
        return {.files = {}, .fragments = path};
    return {.files = {path}};
}

} // namespace

fs::path DevicePaths::standardDefaults() const
{
    return stateFolder / std::string(applicationIdentifier).append(".sqlite");
}

fs::path DevicePaths::suite(std::string_view name) const
{
    return stateFolder / "groups" / std::string(name).append(".sqlite");
}

fs::path DevicePaths::defaultStateFolder(const fs::path& home)
{
    return home / ".local" / "share" / stateFolderName;
}

DevicePaths DevicePaths::fromEnvironment(const std::optional<std::string>& managedConfiguration)
{
    DevicePaths paths;
    paths.stateFolder = userStateFolder();
    const auto runtimeFolder = folderFromEnvironment("XDG_RUNTIME_DIR");
    paths.pushSocket = (runtimeFolder ? *runtimeFolder / "quorvane-mdm" : paths.stateFolder) / "push.sock";
    paths.policy = policyPlaces(managedConfiguration);
    return paths;
}

Files::PolicyPlaces DevicePaths::policyPlaces(const std::optional<std::string>& managedConfiguration)
{
    if (managedConfiguration && managedConfiguration->empty())
        throw InvalidPolicyPath("--managed-configuration needs a file name, but its value is empty");
    const auto named =
        managedConfiguration ? managedConfiguration : environment("QUORVANE_MANAGED_CONFIGURATION");
    if (named)
        return namedPlaces(*named);
    const fs::path folder = policyFolder;
    return {.files = {folder / "managed.plist", folder / "managed.json"},
            .fragments = folder / fragmentFolderName};
}

} // namespace Platform::Linux
