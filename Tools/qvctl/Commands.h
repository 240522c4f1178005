#pragma once

#include "Platform/UserNotificationCenter.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Qvctl {

/// Exit codes, of sysexits(3).
enum ExitCode { success = 0, usage = 64, noInput = 66, unavailable = 69, internal = 70, configuration = 78 };

/// What every verb is told.
struct Options {
    std::optional<std::string> managedConfiguration;
    bool isJSON = false;
    bool isRevealing = false;
};

enum class SchemaFormat { jsonSchema, appConfig, sample };

// One function per verb; each prints its answer and returns the exit code.
ExitCode status(const Options& options);
ExitCode snapshot(const Options& options);
/// Goes on until it is interrupted.
ExitCode watch(const Options& options);
ExitCode configShow(const Options& options);
ExitCode configLint(const Options& options, const std::string& file);
/// Without a file: of the managed configuration of this device.
ExitCode configExplain(const Options& options, const std::optional<std::string>& file);
ExitCode configSet(const Options& options, const std::string& file);
ExitCode configClear(const Options& options);
ExitCode configSchema(const Options& options, SchemaFormat format);
ExitCode notifications(const Options& options, std::int64_t limit);
/// "-" is standard input.
ExitCode push(const Options& options, const std::string& file);
ExitCode setNotificationPermission(const Options& options, Platform::AuthorizationStatus status);

} // namespace Qvctl
