#pragma once

#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace CLI {
class App;
}

namespace App {

/// Exit codes, of sysexits(3).
enum ExitCode { success = 0, usage = 64, unavailable = 69, internal = 70, configuration = 78 };

/// Where pushes come from.
enum class PushSource { automatic, local, off };

/// What the command line asks for.
struct LaunchOptions {
    std::optional<std::string> managedConfiguration;
    PushSource push = PushSource::automatic;
    bool isLoggingToStandardError = false;
    /// For a push that waits: no window opens before the user asks for one.
    bool isStartedByBus = false;
};

/// The command line, for those who parse or describe it. What is parsed is written to `options`, which must
/// live as long.
std::unique_ptr<CLI::App> makeCommandLine(LaunchOptions& options);

/// The options, or the exit code with which the process ends at once: everything has been said then.
std::variant<LaunchOptions, ExitCode> parseCommandLine(int argc, char** argv);

} // namespace App
