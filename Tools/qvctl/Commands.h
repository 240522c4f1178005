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

/// Why a verb cannot do its work; `what()` is a sentence without a full stop.
class CommandError : public std::runtime_error {
public:
    CommandError(ExitCode exitCode, const std::string& reason)
        : std::runtime_error(reason), m_exitCode(exitCode)
    {}
    [[nodiscard]] ExitCode exitCode() const { return m_exitCode; }

private:
    ExitCode m_exitCode;
};

/// The options of every verb.
struct Options {
    std::optional<std::string> managedConfiguration;
    bool isJSON = false;
    bool isRevealing = false;
};

/// Which lines of the journal are asked for.
struct LogOptions {
    std::optional<Platform::Date> since;
    Platform::LogType lowestLevel = Platform::LogType::debug;
    /// At most so many, the newest.
    std::optional<std::uint64_t> limit;
    bool isFollowing = false;
    /// Whether to show lines of other users and other programs too.
    bool isOfAll = false;
};

enum class SchemaFormat { jsonSchema, appConfig, sample };

/// What an examination may do.
struct DoctorOptions {
    /// Leaves the network alone.
    bool isOffline = false;
    /// Time limit of each step that waits; connecting to the backend is one step.
    std::chrono::milliseconds timeout = std::chrono::seconds(5);
};

// One function per verb; each prints its answer and returns the exit code. They throw `CommandError`, and
// what their parts throw.
ExitCode status(const Options& options);
ExitCode snapshot(const Options& options);
/// Goes on until it is interrupted.
ExitCode watch(const Options& options);
ExitCode log(const Options& options, const LogOptions& selection);
ExitCode configShow(const Options& options);
/// Checks each file; "-" is standard input, here and for the verbs that follow.
ExitCode configLint(const Options& options, const std::vector<std::string>& files);
/// Without a file: of the managed configuration of this device.
ExitCode configExplain(const Options& options, const std::optional<std::string>& file);
/// Refuses a file with errors unless `isForced`.
ExitCode configSet(const Options& options, const std::string& file, bool isForced);
ExitCode configClear(const Options& options);
/// Deletes the stored snapshot of this user, which holds the API key.
ExitCode configForget(const Options& options);
ExitCode configSchema(const Options& options, SchemaFormat format);
ExitCode notifications(const Options& options, std::int64_t limit);
/// "-" is standard input.
ExitCode push(const Options& options, const std::string& file);
/// Examines the whole chain from the policy file to the backend, check by check.
ExitCode doctor(const Options& options, const DoctorOptions& limits);
ExitCode setNotificationPermission(const Options& options, Platform::AuthorizationStatus status);

} // namespace Qvctl
