#include "Core/ConfigurationManager.h"
#include "Core/Logger.h"
#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/FileSystemWatcher.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/JournalLog.h"
#include "Platform/Linux/StandardErrorLog.h"
#include "Platform/Linux/SystemClock.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Services.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <variant>

namespace App {

/// The application entry: brings logging and the managed configuration into being, in that order, before any
/// screen exists. The process-wide services must be installed.
///
/// Threads: main.
class AppMain {
public:
    AppMain()
    {
        setupLogging();
        setupManagedConfiguration();
    }

private:
    static void setupLogging()
    {
        Core::LoggingConfig::defaultPrivacy = Core::LogPrivacy::private_;
        Core::LoggingConfig::isDebugLoggingEnabled = false;
        Core::Logger::shared().info("Quorvane MDM App starting up", "setupLogging()");
    }

    static void setupManagedConfiguration()
    {
        Core::ConfigurationManager& manager = Core::ConfigurationManager::shared();
        manager.registerForConfigurationChanges();
        manager.updateConfigurationFromMDM();
        Core::Logger::shared().info("Configuration manager initialized", "setupManagedConfiguration()");
    }
};

} // namespace App

namespace {

using namespace Platform;

/// Exit codes, of sysexits(3).
enum ExitCode { success = 0, usage = 64, internal = 70, configuration = 78 };

struct Options {
    std::optional<std::string> managedConfiguration;
    bool isLoggingToStandardError = false;
};

/// The options, or the exit code with which the process ends at once.
std::variant<Options, ExitCode> parseCommandLine(int argc, char** argv)
{
    Options options;
    CLI::App commandLine(
        "The companion app of a managed device: takes the configuration that the organisation sends, "
        "keeps it for the single-sign-on extension and follows its changes.",
        "quorvane-mdm");
    commandLine.set_version_flag("--version", "quorvane-mdm " QV_VERSION);
    commandLine
        .add_option("--managed-configuration", options.managedConfiguration,
                    "Policy file to follow instead of /etc/quorvane-mdm/managed.plist or managed.json "
                    "(environment: QUORVANE_MANAGED_CONFIGURATION)")
        ->type_name("FILE");
    commandLine.add_flag("--log-stderr", options.isLoggingToStandardError,
                         "Log to standard error instead of the journal");
    try {
        commandLine.parse(argc, argv);
        return options;
    } catch (const CLI::Success& helpOrVersion) {
        return commandLine.exit(helpOrVersion) == 0 ? success : internal;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "quorvane-mdm: %s\nTry quorvane-mdm --help.\n", error.what());
        return usage;
    }
}

std::unique_ptr<UnifiedLog> makeLog(const Options& options, const Clock& clock)
{
    const Linux::PrivateData privateData = Linux::privateDataFromEnvironment();
    if (!options.isLoggingToStandardError && Linux::JournalLog::isAvailable())
        return std::make_unique<Linux::JournalLog>("quorvane-mdm", privateData);
    return std::make_unique<Linux::StandardErrorLog>(clock, privateData);
}

/// Starts to follow the policy file and the defaults; without a watcher the application still serves what it
/// has.
std::unique_ptr<Linux::FileSystemWatcher> makeWatcher(const Linux::AdapterLog& log)
{
    try {
        return std::make_unique<Linux::FileSystemWatcher>();
    } catch (const std::system_error& error) {
        log.error(
            std::string("Changes of the managed configuration will go unnoticed until the next start: ") +
            error.what());
        return nullptr;
    }
}

/// Takes the lock of this device's state, or tells why there is none: only another instance keeps us from
/// starting.
std::optional<Linux::InstanceLock> lockInstance(const Linux::DevicePaths& paths, const Linux::AdapterLog& log,
                                                bool& isRunningAlready)
{
    try {
        auto lock = Linux::InstanceLock::acquire(paths.instanceLock());
        isRunningAlready = !lock.has_value();
        return lock;
    } catch (const std::system_error& error) {
        log.error(std::string("Cannot tell whether another instance runs: ") + error.what());
        return std::nullopt;
    }
}

/// Chooses the adapters, in the order in which they need each other, and runs the application on them.
ExitCode run(int& argc, char** argv, const Options& options, const Linux::DevicePaths& paths)
{
    const Linux::SystemClock clock;
    const auto log = makeLog(options, clock);
    const Linux::AdapterLog adapterLog(*log, std::string(Linux::applicationIdentifier));

    bool isRunningAlready = false;
    const auto instanceLock = lockInstance(paths, adapterLog, isRunningAlready);
    if (isRunningAlready) {
        std::fprintf(stderr, "quorvane-mdm: already running on %s\n", paths.stateFolder.c_str());
        return success;
    }

    Desktop::QtRunLoop runLoop(argc, argv);
    NotificationCenter notificationCenter;
    Linux::DeviceDefaults defaults(paths, Linux::SQLiteUserDefaults::Access::readWrite, clock, adapterLog);
    Linux::WorkerQueue utilityQueue("utility queue", Linux::WorkerQueue::Priority::utility);
    const Services services{
        .userDefaults = defaults,
        .notificationCenter = notificationCenter,
        .mainQueue = runLoop,
        .utilityQueue = utilityQueue,
        .timers = runLoop,
        .clock = clock,
        .log = *log,
        .bundleIdentifier = std::string(Linux::applicationIdentifier),
    };
    installServices(services);
    const auto watcher = makeWatcher(adapterLog);
    if (watcher)
        defaults.announceChanges(*watcher, notificationCenter, runLoop);

    const App::AppMain app;
    if (const char* debug = std::getenv("QUORVANE_LOG_DEBUG");
        debug != nullptr && std::string_view(debug) == "1")
        Core::LoggingConfig::setVerboseLoggingEnabled(true);
    runLoop.run();
    return success;
}

} // namespace

int main(int argc, char** argv)
{
    const auto parsed = parseCommandLine(argc, argv);
    if (const auto* exitCode = std::get_if<ExitCode>(&parsed))
        return *exitCode;
    const auto& options = std::get<Options>(parsed);
    ExitCode failure = configuration;
    try {
        const auto paths = Linux::DevicePaths::fromEnvironment(options.managedConfiguration);
        failure = internal;
        return run(argc, argv, options, paths);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quorvane-mdm: %s\n", error.what());
        return failure;
    }
}
