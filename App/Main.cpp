#include "App/AppearanceModel.h"
#include "App/ContentView.h"
#include "App/LaunchOptions.h"
#include "App/NotificationAppDelegate.h"
#include "Core/ConfigurationManager.h"
#include "Core/Logger.h"
#include "Platform/Desktop/GuiApplication.h"
#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Desktop/Shell/Shell.h"
#include "Platform/Desktop/WindowGroup.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/DeviceNotificationPreferences.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/FileSystemWatcher.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/JournalLog.h"
#include "Platform/Linux/LocalPushService.h"
#include "Platform/Linux/NotificationServer.h"
#include "Platform/Linux/PortalAppearance.h"
#include "Platform/Linux/ProcessSecrets.h"
#include "Platform/Linux/SessionBus.h"
#include "Platform/Linux/StandardDescriptors.h"
#include "Platform/Linux/StandardErrorLog.h"
#include "Platform/Linux/UnifiedPushService.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/Network/CurlURLSession.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Push/DeviceApplication.h"
#include "Platform/Push/DeviceNotificationCenter.h"
#include "Platform/Push/ShellState.h"
#include "Platform/Push/UnavailablePushService.h"
#include "Platform/Services.h"
#include "Platform/SystemClock.h"
#include "PushNotifications/NotificationPermissionManager.h"

#include <QFont>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
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

    /// What the only window shows.
    ContentView& body()
    {
        const Platform::Services& services = Platform::services();
        m_contentView = std::make_unique<ContentView>(
            ContentView::Ports{Core::Logger::shared(), services.userDefaults.standard(),
                               PushNotifications::NotificationPermissionManager::shared(),
                               services.application, services.mainQueue});
        return *m_contentView;
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
    std::unique_ptr<ContentView> m_contentView;
};

} // namespace App

namespace {

using namespace Platform;

constexpr const char* applicationName = "Quorvane MDM";

std::unique_ptr<UnifiedLog> makeLog(const App::LaunchOptions& options, const Clock& clock)
{
    const Linux::PrivateData privateData = Linux::privateDataFromEnvironment();
    if (!options.isLoggingToStandardError && Linux::JournalLog::isAvailable())
        return std::make_unique<Linux::JournalLog>(std::string(Linux::journalIdentifier), privateData);
    return std::make_unique<Linux::StandardErrorLog>(clock, privateData);
}

/// Starts to follow the policy file and the defaults; without a watcher the application still serves what it
/// has.
std::unique_ptr<Linux::FileSystemWatcher> makeWatcher(const AdapterLog& log)
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
std::optional<Linux::InstanceLock> lockInstance(const Linux::DevicePaths& paths, const AdapterLog& log,
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

/// Has the running instance come to the front. Returns the exit code of this launch; absent when the other
/// one ended instead, as an instance without a display does.
std::optional<App::ExitCode> activateInstance(const Linux::DevicePaths& paths)
{
    using Linux::InstanceLock;
    constexpr std::chrono::milliseconds longestEnd(300);
    const auto file = paths.instanceLock();
    switch (InstanceLock::signalHolder(file, Desktop::QtRunLoop::activationSignal, longestEnd)) {
    case InstanceLock::SignalOutcome::ended:
        return std::nullopt;
    case InstanceLock::SignalOutcome::delivered:
        std::fprintf(stderr, "quorvane-mdm: already running on %s\n", paths.stateFolder.c_str());
        return App::success;
    case InstanceLock::SignalOutcome::elsewhere:
        std::fprintf(stderr,
                     "quorvane-mdm: already running on %s in another container or on another machine; end it "
                     "there first\n",
                     paths.stateFolder.c_str());
        return App::unavailable;
    case InstanceLock::SignalOutcome::foreign:
        break;
    }
    std::fprintf(stderr, "quorvane-mdm: another program holds %s; end it first\n", file.c_str());
    return App::unavailable;
}

/// The session bus; without one, why.
struct SessionBusAccess {
    std::unique_ptr<Linux::SessionBus> bus;
    std::string absence;
};

SessionBusAccess openSessionBus(const AdapterLog& log)
{
    try {
        return {std::make_unique<Linux::SessionBus>(log), {}};
    } catch (const std::runtime_error& error) {
        return {nullptr, error.what()};
    }
}

std::unique_ptr<PushService> makePushService(App::PushSource source, const SessionBusAccess& access,
                                             UserDefaults& store, const Linux::DevicePaths& paths,
                                             Desktop::QtRunLoop& runLoop, const AdapterLog& log)
{
    if (source == App::PushSource::off)
        return std::make_unique<Push::UnavailablePushService>(
            runLoop, "Remote notifications are turned off; start without --push off.");
    if (source == App::PushSource::local)
        return std::make_unique<Linux::LocalPushService>(Linux::LocalPushService::Ports{store, runLoop, log},
                                                         paths.pushSocket);
    if (!access.bus)
        return std::make_unique<Push::UnavailablePushService>(runLoop, access.absence + ".");
    const char* chosen = std::getenv("UNIFIEDPUSH_DISTRIBUTOR");
    return std::make_unique<Linux::UnifiedPushService>(
        Linux::UnifiedPushService::Ports{*access.bus, store, runLoop, runLoop, log},
        Linux::UnifiedPushService::Settings{
            .serviceName = std::string(Linux::applicationIdentifier),
            .description = "Messages of your organisation about this device",
            .chosenDistributor = chosen != nullptr ? chosen : "",
        });
}

/// Where pushes come from, for people.
std::string pushSourceText(App::PushSource source)
{
    switch (source) {
    case App::PushSource::off:
        return "Turned off";
    case App::PushSource::local:
        return "This device itself";
    case App::PushSource::automatic:
        break;
    }
    return "UnifiedPush";
}

std::unique_ptr<AppearanceSource> makeAppearanceSource(const SessionBusAccess& access,
                                                       DispatchQueue& mainQueue)
{
    if (auto fixed = FixedAppearance::fromEnvironment())
        return fixed;
    if (!access.bus)
        return std::make_unique<FixedAppearance>();
    return std::make_unique<Linux::PortalAppearance>(*access.bus, mainQueue);
}

/// What each text looks up before its own font: one that the screens use, or another face is loaded for it.
QFont defaultFont()
{
    QFont font(QStringLiteral("Inter"));
    font.setPixelSize(15);
    return font;
}

/// The only window, made when it is shown for the first time.
class MainWindow {
public:
    struct Ports {
        UserDefaults& store;
        Desktop::Shell& shell;
        AppearanceSource& appearance;
        App::AppMain& app;
    };

    /// `content` may be on its way; it must outlive this object.
    MainWindow(const Ports& ports, std::optional<Desktop::WindowContent>& content)
        : m_ports(ports), m_content(content)
    {
        const auto apply = [this](const Appearance& value) {
            m_appearance.set(value);
            m_ports.shell.setAppearance(value);
        };
        apply(ports.appearance.current());
        ports.appearance.observe(apply);
    }

    static void read(std::optional<Desktop::WindowContent>& content)
    {
        content.emplace(QStringLiteral("Quorvane.App"), QStringLiteral("ContentView"));
    }

    /// Brings it to the front.
    void show()
    {
        if (m_group) {
            m_group->raise();
            return;
        }
        if (!m_content)
            read(m_content);
        m_group.emplace(*m_content, m_ports.store, QString::fromUtf8(applicationName));
        m_ports.shell.attach(m_content->engine(), m_group->window());
        m_group->show({{"view", QVariant::fromValue(&m_ports.app.body())},
                       {"appearance", QVariant::fromValue(&m_appearance)}});
    }

private:
    const Ports m_ports;
    std::optional<Desktop::WindowContent>& m_content;
    App::AppearanceModel m_appearance;
    std::optional<Desktop::WindowGroup> m_group;
};

/// Chooses the adapters, in the order in which they need each other, and runs the application on them.
App::ExitCode run(int& argc, char** argv, const App::LaunchOptions& options, const Linux::DevicePaths& paths)
{
    using Access = Storage::SQLiteUserDefaults::Access;
    const SystemClock clock;
    const auto log = makeLog(options, clock);
    const AdapterLog adapterLog(*log, std::string(Linux::applicationIdentifier));
    // It knows the activation signal from here on: whoever holds the lock can be sent it.
    Desktop::QtRunLoop runLoop(Desktop::makeGuiApplication(
        argc, argv, options.isStartedByBus ? Desktop::Display::optional : Desktop::Display::needed));
    QGuiApplication::setDesktopFileName(QString::fromUtf8(Linux::applicationIdentifier));
    QGuiApplication::setFont(defaultFont());

    bool isRunningAlready = false;
    auto instanceLock = lockInstance(paths, adapterLog, isRunningAlready);
    if (isRunningAlready) {
        if (options.isStartedByBus)
            return App::success;
        if (const auto exitCode = activateInstance(paths))
            return *exitCode;
        instanceLock = lockInstance(paths, adapterLog, isRunningAlready);
        if (isRunningAlready)
            return App::success;
    }

    std::optional<Desktop::WindowContent> windowContent;
    if (!options.isStartedByBus)
        MainWindow::read(windowContent);
    NotificationCenter notificationCenter;
    Linux::DeviceDefaults defaults(paths, Access::readWrite, clock, adapterLog);
    Network::CurlURLSession urlSession;
    Linux::WorkerQueue utilityQueue("utility queue", Linux::WorkerQueue::Priority::utility);
    Linux::WorkerQueue defaultQueue("default queue", Linux::WorkerQueue::Priority::default_);

    // The system's side of notifications and pushes.
    Storage::SQLiteUserDefaults shellStore(paths.shellState(), Access::readWrite, clock, adapterLog);
    Push::ShellState shellState(shellStore);
    const SessionBusAccess busAccess = openSessionBus(adapterLog);
    std::optional<Linux::NotificationServer> notificationServer;
    if (busAccess.bus)
        notificationServer.emplace(
            Linux::NotificationServer::Ports{*busAccess.bus, runLoop, runLoop, adapterLog},
            Linux::NotificationServer::Application{applicationName,
                                                   std::string(Linux::applicationIdentifier)});
    Linux::DeviceNotificationPreferences preferences(
        shellState, notificationServer ? &*notificationServer : nullptr, pushSourceText(options.push));
    Desktop::Shell shell({preferences, runLoop}, applicationName);
    std::vector<NotificationPresenter*> presenters{&shell};
    if (notificationServer)
        presenters.insert(presenters.begin(), &*notificationServer);
    Push::DeviceNotificationCenter userNotificationCenter(
        {.state = shellState, .mainQueue = runLoop, .prompt = &shell, .presenters = std::move(presenters)});
    const auto pushService = makePushService(options.push, busAccess, shellStore, paths, runLoop, adapterLog);
    Push::DeviceApplication application(
        {*pushService, userNotificationCenter, clock, [&] { shell.openSettings(); }});
    const auto appearance = makeAppearanceSource(busAccess, runLoop);

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

    MainWindow window({shellStore, shell, *appearance, app}, windowContent);
    const bool isUnseen = options.isStartedByBus && QGuiApplication::platformName() == u"offscreen";
    runLoop.onActivation([&] { isUnseen ? runLoop.quit() : window.show(); });
    application.setActive(QGuiApplication::applicationState() == Qt::ApplicationActive);
    QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, &shell,
                     [&](Qt::ApplicationState state) {
                         application.setActive(state == Qt::ApplicationActive);
                         shell.preferencesChanged();
                     });
    if (!options.isStartedByBus)
        window.show();
    application.finishLaunching();

    if (busAccess.bus)
        busAccess.bus->start();
    runLoop.run();
    if (busAccess.bus)
        busAccess.bus->stop();
    return App::success;
}

} // namespace

int main(int argc, char** argv)
{
    Linux::openMissingStandardDescriptors();
    // A closed log pipe or a file-size limit must fail the write, not kill the process.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    Linux::protectProcessSecrets(Linux::privateDataFromEnvironment());
    const auto parsed = App::parseCommandLine(argc, argv);
    if (const auto* exitCode = std::get_if<App::ExitCode>(&parsed))
        return *exitCode;
    const auto& options = std::get<App::LaunchOptions>(parsed);
    App::ExitCode failure = App::configuration;
    try {
        const auto paths = Linux::DevicePaths::fromEnvironment(options.managedConfiguration);
        failure = App::internal;
        return run(argc, argv, options, paths);
    } catch (const Linux::InvalidPolicyPath& error) {
        std::fprintf(stderr, "quorvane-mdm: %s\nTry quorvane-mdm --help.\n", error.what());
        return App::usage;
    } catch (const Desktop::NoDisplay& error) {
        std::fprintf(stderr, "quorvane-mdm: %s\n", error.what());
        return App::unavailable;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quorvane-mdm: %s\n", error.what());
        return failure;
    }
}
