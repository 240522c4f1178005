#pragma once

#include "Platform/Date.h"
#include "Platform/ExitCode.h"
#include "Platform/UnifiedLog.h"
#include "Platform/UserNotificationCenter.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Qvctl {

using Platform::ExitCode;
using enum Platform::ExitCode;

/// Why a command failed; `what()` is a sentence without a full stop.
class CommandError : public std::runtime_error {
public:
    CommandError(ExitCode exitCode, const std::string& reason)
        : std::runtime_error(reason), m_exitCode(exitCode)
    {}
    [[nodiscard]] ExitCode exitCode() const { return m_exitCode; }

private:
    ExitCode m_exitCode;
};

/// Absent for no limit.
using WaitLimit = std::optional<std::chrono::milliseconds>;

/// What `wait` waits for: `version` if present, otherwise `isUploaded`, otherwise the policy file's values.
struct WaitOptions {
    /// The stored snapshot has this version or a later one.
    std::optional<std::int64_t> version;
    bool isUploaded = false;
    WaitLimit timeout;
};

/// The options of `config set`.
struct InstallOptions {
    /// Installs a file with errors, too.
    bool isForced = false;
    /// Waits until the app has applied the file.
    bool isWaiting = false;
    WaitLimit timeout;
};

/// The options of every command.
struct Options {
    std::optional<std::string> managedConfiguration;
    bool isJSON = false;
    bool isRevealing = false;
    /// The command runs for another user, whose session's environment is not known.
    bool isOtherUser = false;
};

/// Which journal lines to show.
struct LogOptions {
    std::optional<Platform::Date> since;
    Platform::LogType lowestLevel = Platform::LogType::debug;
    /// Shows only the newest ones.
    std::optional<std::uint64_t> limit;
    bool isFollowing = false;
    /// Includes lines of other users and programs.
    bool isIncludingOthers = false;
};

enum class SchemaFormat { jsonSchema, appConfig, sample };

struct DoctorOptions {
    /// Skips the checks that use the network.
    bool isOffline = false;
    /// Sends a request without credentials to the backend.
    bool isProbing = false;
    /// For each step that waits; connecting to the backend is one step.
    std::chrono::milliseconds timeout = std::chrono::seconds(5);
};

// One function per command; each prints its output and returns the exit code. Errors: `CommandError`, and
// other exceptions of the functions they call.
/// `conditions` are names from Conditions.h; the exit code is `checkFailed` unless all are met.
ExitCode status(const Options& options, const std::vector<std::string>& conditions);
ExitCode snapshot(const Options& options);
ExitCode snapshotSchema(const Options& options);
/// Runs until SIGINT or SIGTERM, or until standard output has no reader.
ExitCode watch(const Options& options);
/// Waits until a condition is met. Ends the process if a signal interrupts it.
ExitCode wait(const Options& options, const WaitOptions& goal);
/// Makes the running app read the policy again, and waits until changed values are applied. For root, if its
/// own app does not run: the apps of all users, without waiting.
ExitCode reload(const Options& options);
ExitCode log(const Options& options, const LogOptions& selection);
ExitCode configShow(const Options& options);
/// Checks this device's configuration if `files` is empty. In this and the following commands, the file "-"
/// is standard input.
ExitCode configLint(const Options& options, const std::vector<std::string>& files);
/// Explains this device's policy file if `file` is absent.
ExitCode configExplain(const Options& options, const std::optional<std::string>& file);
/// Refuses a file with errors unless forced.
ExitCode configSet(const Options& options, const std::string& file, const InstallOptions& how);
ExitCode configClear(const Options& options);
/// Deletes this user's stored snapshot, which includes the API key.
ExitCode configForget(const Options& options);
ExitCode configSchema(const Options& options, SchemaFormat format);
ExitCode notifications(const Options& options, std::int64_t limit);
ExitCode push(const Options& options, const std::string& file);
/// Checks everything from the policy file to the backend.
ExitCode doctor(const Options& options, const DoctorOptions& limits);
/// Writes a support bundle to a new file, by default in the current folder; "-" is standard output.
ExitCode bundle(const Options& options, const std::optional<std::string>& file);
ExitCode setNotificationPermission(const Options& options, Platform::AuthorizationStatus status);

} // namespace Qvctl
