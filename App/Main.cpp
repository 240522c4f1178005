#include "App/NotificationAppDelegate.h"
#include "Core/ConfigurationManager.h"
#include "Core/Logger.h"
#include "Platform/Desktop/DesktopApplication.h"
#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Linux/CurlURLSession.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/DeviceNotificationCenter.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/FileSystemWatcher.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/JournalLog.h"
#include "Platform/Linux/LocalPushService.h"
#include "Platform/Linux/NotificationServer.h"
#include "Platform/Linux/SessionBus.h"
#include "Platform/Linux/ShellState.h"
#include "Platform/Linux/StandardErrorLog.h"
#include "Platform/Linux/SystemClock.h"
#include "Platform/Linux/UnavailablePushService.h"
#include "Platform/Linux/UnifiedPushService.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Services.h"
#include "PushNotifications/NotificationPermissionManager.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

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

    /// Makes the delegate and lets `application` call it.
    void installDelegate(Platform::Application& application)
    {
        m_appDelegate = std::make_shared<NotificationAppDelegate>();
        application.setDelegate(m_appDelegate);
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

    std::shared_ptr<NotificationAppDelegate> m_appDelegate;
};

/// What the dashboard does about notifications when it comes on screen.
Platform::Task<void> permissionStep(Platform::Application& application, Platform::DispatchQueue& mainQueue)
{
    using Platform::AuthorizationStatus;
    const auto& manager = PushNotifications::NotificationPermissionManager::shared();
    auto query = manager.currentStatus();
    const AuthorizationStatus status = co_await std::move(query);
    bool isAllowed = status == AuthorizationStatus::authorized ||
                     status == AuthorizationStatus::provisional || status == AuthorizationStatus::ephemeral;
    if (status == AuthorizationStatus::notDetermined) {
        auto request = manager.requestAuthorization();
        isAllowed = co_await std::move(request);
    }
    auto onMainQueue = Platform::resumeOn(mainQueue);
    co_await onMainQueue;
    if (isAllowed)
        application.registerForRemoteNotifications();
}

} // namespace App

namespace {

using namespace Platform;

/// Exit codes, of sysexits(3).
enum ExitCode { success = 0, usage = 64, internal = 70, configuration = 78 };

/// Where pushes come from.
enum class PushSource { automatic, local, off };

struct Options {
    std::optional<std::string> managedConfiguration;
    PushSource push = PushSource::automatic;
    bool isDashboardAssumed = false;
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
    const std::map<std::string, PushSource> sources{
        {"auto", PushSource::automatic}, {"local", PushSource::local}, {"off", PushSource::off}};
    std::string source = "auto";
    commandLine
        .add_option(
            "--push", source,
            "Where pushes come from: auto (a UnifiedPush distributor on the session bus, the default), "
            "local (a socket of this application, for tests) or off")
        ->type_name("SOURCE")
        ->check(CLI::IsMember(std::set<std::string>{"auto", "local", "off"}));
    commandLine.add_flag("--assume-dashboard", options.isDashboardAssumed,
                         "Development: act as if the dashboard were on screen and the user allowed "
                         "notifications");
    commandLine.add_flag("--log-stderr", options.isLoggingToStandardError,
                         "Log to standard error instead of the journal");
    try {
        commandLine.parse(argc, argv);
        options.push = sources.at(source);
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

/// The session bus; without one, why.
struct SessionBusAccess {
    std::unique_ptr<Linux::SessionBus> bus;
    std::string absence;
};

SessionBusAccess openSessionBus(const Linux::AdapterLog& log)
{
    try {
        return {std::make_unique<Linux::SessionBus>(log), {}};
    } catch (const std::runtime_error& error) {
        return {nullptr, error.what()};
    }
}

std::unique_ptr<PushService> makePushService(PushSource source, const SessionBusAccess& access,
                                             UserDefaults& store, const Linux::DevicePaths& paths,
                                             DispatchQueue& mainQueue, const Linux::AdapterLog& log)
{
    if (source == PushSource::off)
        return std::make_unique<Linux::UnavailablePushService>(
            mainQueue, "Remote notifications are turned off; start without --push off.");
    if (source == PushSource::local)
        return std::make_unique<Linux::LocalPushService>(
            Linux::LocalPushService::Ports{store, mainQueue, log}, paths.pushSocket);
    if (!access.bus)
        return std::make_unique<Linux::UnavailablePushService>(mainQueue, access.absence + ".");
    const char* preferred = std::getenv("UNIFIEDPUSH_DISTRIBUTOR");
    return std::make_unique<Linux::UnifiedPushService>(
        Linux::UnifiedPushService::Ports{*access.bus, store, mainQueue, log},
        Linux::UnifiedPushService::Settings{
            .serviceName = std::string(Linux::applicationIdentifier),
            .description = "Messages of your organisation about this device",
            .preferredDistributor = preferred != nullptr ? preferred : "",
        });
}

/// Grants what is asked: stands in for a user as long as there is no screen to ask on.
class ConsentingUser final : public PermissionPrompt {
public:
    explicit ConsentingUser(DispatchQueue& mainQueue) : m_mainQueue(mainQueue) {}
    void ask(std::function<void(bool)> completion) override
    {
        m_mainQueue.async([completion = std::move(completion)] { completion(true); });
    }

private:
    DispatchQueue& m_mainQueue;
};

/// Chooses the adapters, in the order in which they need each other, and runs the application on them.
ExitCode run(int& argc, char** argv, const Options& options, const Linux::DevicePaths& paths)
{
    using Access = Linux::SQLiteUserDefaults::Access;
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
    Linux::DeviceDefaults defaults(paths, Access::readWrite, clock, adapterLog);
    Linux::CurlURLSession urlSession;
    Linux::WorkerQueue utilityQueue("utility queue", Linux::WorkerQueue::Priority::utility);
    Linux::WorkerQueue defaultQueue("default queue", Linux::WorkerQueue::Priority::default_);

    Linux::SQLiteUserDefaults shellStore(paths.shellState(), Access::readWrite, clock, adapterLog);
    Linux::ShellState shellState(shellStore);
    ConsentingUser user(runLoop);
    const SessionBusAccess busAccess = openSessionBus(adapterLog);
    std::vector<NotificationPresenter*> presenters;
    std::optional<Linux::NotificationServer> notificationServer;
    if (busAccess.bus)
        presenters.push_back(&notificationServer.emplace(
            Linux::NotificationServer::Ports{*busAccess.bus, runLoop, runLoop, adapterLog},
            Linux::NotificationServer::Application{"Quorvane MDM",
                                                   std::string(Linux::applicationIdentifier)}));
    Linux::DeviceNotificationCenter userNotificationCenter(
        {.state = shellState,
         .mainQueue = runLoop,
         .prompt = options.isDashboardAssumed ? &user : nullptr,
         .presenters = std::move(presenters)});
    const auto pushService = makePushService(options.push, busAccess, shellStore, paths, runLoop, adapterLog);
    Desktop::DesktopApplication application({*pushService, userNotificationCenter, clock});
    application.setActive(options.isDashboardAssumed);

    const Services services{
        .userDefaults = defaults,
        .notificationCenter = notificationCenter,
        .mainQueue = runLoop,
        .utilityQueue = utilityQueue,
        .defaultQueue = defaultQueue,
        .timers = runLoop,
        .clock = clock,
        .log = *log,
        .urlSession = urlSession,
        .userNotificationCenter = userNotificationCenter,
        .application = application,
        .bundleIdentifier = std::string(Linux::applicationIdentifier),
    };
    installServices(services);
    const auto watcher = makeWatcher(adapterLog);
    if (watcher)
        defaults.announceChanges(*watcher, notificationCenter, runLoop);

    App::AppMain app;
    if (const char* debug = std::getenv("QUORVANE_LOG_DEBUG");
        debug != nullptr && std::string_view(debug) == "1")
        Core::LoggingConfig::setVerboseLoggingEnabled(true);
    app.installDelegate(application);
    application.finishLaunching();
    if (options.isDashboardAssumed)
        spawn(runLoop, App::permissionStep(application, runLoop));
    if (busAccess.bus)
        busAccess.bus->start();
    runLoop.run();
    if (busAccess.bus)
        busAccess.bus->stop();
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
