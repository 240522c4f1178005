#include "Platform/Linux/Device.h"

#include "Platform/Linux/Bus/PortalAppearance.h"
#include "Platform/Linux/Bus/UnifiedPushService.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/LocalPushService.h"
#include "Platform/Linux/Logging/JournalLog.h"
#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Platform/Linux/ProcessSecrets.h"
#include "Platform/Linux/ProcessSignals.h"
#include "Platform/Linux/ProgramRestart.h"
#include "Platform/Linux/StandardDescriptors.h"
#include "Platform/Network/CurlURLSession.h"
#include "Platform/Push/UnavailablePushService.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace Platform::Linux {

namespace {

constexpr const char* applicationName = "Quorvane MDM";

std::unique_ptr<UnifiedLog> makeLog(const DeviceOptions& options, const Clock& clock)
{
    const Logging::PrivateData privateData = Logging::privateDataFromEnvironment();
    if (!options.isLoggingToStandardError && Logging::JournalLog::isAvailable())
        return std::make_unique<Logging::JournalLog>(std::string(journalIdentifier), privateData);
    return std::make_unique<Logging::StandardErrorLog>(clock, privateData);
}

/// Brings the running instance to the front and returns the exit code of this launch. Absent if the other
/// instance exited instead, as one without a display does.
std::optional<ExitCode> activateOther(const DevicePaths& paths)
{
    const auto file = paths.instanceLock();
    switch (InstanceLock::signalHolder(file, ProcessSignals::activationSignal)) {
    case InstanceLock::SignalOutcome::ended:
        return std::nullopt;
    case InstanceLock::SignalOutcome::delivered:
        std::fprintf(stderr, "quorvane-mdm: already running on %s\n", paths.stateFolder.c_str());
        return success;
    case InstanceLock::SignalOutcome::unreachable:
        std::fprintf(
            stderr,
            "quorvane-mdm: already running on %s in another container or on another machine; quit it "
            "there first\n",
            paths.stateFolder.c_str());
        return unavailable;
    case InstanceLock::SignalOutcome::foreign:
        break;
    }
    std::fprintf(stderr, "quorvane-mdm: another program holds the lock %s; quit that program first\n",
                 file.c_str());
    return unavailable;
}

std::string pushSourceText(PushSource source, const DeviceStrings& strings)
{
    switch (source) {
    case PushSource::off:
        return strings.pushTurnedOff;
    case PushSource::local:
        return strings.pushFromThisDevice;
    case PushSource::automatic:
        break;
    }
    return "UnifiedPush";
}

/// Counts each request as activity until its outcome is delivered.
class CountingURLSession final : public URLSession {
public:
    explicit CountingURLSession(const Activity& activity) : m_activity(activity) {}

    void start(URLRequest request, Completion completion) override
    {
        m_session.start(std::move(request), [completion = std::move(completion), work = m_activity.begin()](
                                                Outcome outcome) { completion(std::move(outcome)); });
    }

private:
    const Activity& m_activity;
    Network::CurlURLSession m_session;
};

} // namespace

struct Device::Instance {
    Instance(const DeviceOptions& options, const EventLoop& loop, ProgramRestart& restart)
        : log(makeLog(options, clock)),
          whenSignaled(loop.hasDisplay ? InstanceLock::WhenSignaled::opensWindow
                                       : InstanceLock::WhenSignaled::exits),
          signals(
              [&restart, quit = loop.quit] {
                  restart.cancel();
                  quit();
              },
              loop.activate)
    {}

    /// Makes this the only instance, or returns this process's exit code.
    std::optional<ExitCode> claim(const DeviceOptions& options, const DevicePaths& paths)
    {
        while (!tryLock(paths)) {
            if (options.isInBackground)
                return success;
            if (const auto exitCode = activateOther(paths))
                return exitCode;
            hasReplacedOther = true;
        }
        return std::nullopt;
    }

    const SystemClock clock;
    const std::unique_ptr<UnifiedLog> log;
    const AdapterLog adapterLog{*log, std::string(applicationIdentifier)};
    const InstanceLock::WhenSignaled whenSignaled;
    /// Declared before the lock because other instances send signals to the lock's holder.
    ProcessSignals signals;
    std::optional<InstanceLock> lock;
    /// The other instance had no display, so it ended for this one.
    bool hasReplacedOther = false;

private:
    /// Returns false if another instance holds the lock. Other errors do not prevent this one from starting.
    bool tryLock(const DevicePaths& paths)
    {
        try {
            lock = InstanceLock::acquire(paths.instanceLock(), whenSignaled);
            return lock.has_value();
        } catch (const std::runtime_error& error) {
            adapterLog.error(std::string("Cannot check for another running instance: ") + error.what());
            return true;
        }
    }
};

void prepareProcess()
{
    openMissingStandardDescriptors();
    // A closed log pipe or a file-size limit must fail the write, not kill the process.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    protectProcessSecrets(Logging::privateDataFromEnvironment());
    ProcessSignals::block();
}

std::variant<std::unique_ptr<Platform::Device>, ExitCode>
Device::make(const DeviceOptions& options, const DevicePaths& paths, const EventLoop& loop,
             const DeviceStrings& strings, ProgramRestart& restart)
{
    auto instance = std::make_unique<Instance>(options, loop, restart);
    if (const auto exitCode = instance->claim(options, paths))
        return *exitCode;
    return std::unique_ptr<Platform::Device>(
        new Device(options, paths, loop, strings, std::move(instance), restart));
}

Device::Device(const DeviceOptions& options, const DevicePaths& paths, EventLoop loop, DeviceStrings strings,
               std::unique_ptr<Instance> instance, ProgramRestart& restart)
    : m_options(options),
      m_paths(paths),
      m_loop(std::move(loop)),
      m_strings(std::move(strings)),
      m_instance(std::move(instance)),
      m_log(m_instance->adapterLog),
      m_upgrade({.mainQueue = m_loop.mainQueue,
                 .timers = m_loop.timers,
                 .log = m_log,
                 .restart = restart,
                 .quit = m_loop.quit}),
      m_defaults(paths, Storage::SQLiteUserDefaults::Access::readWrite, m_clock, m_log),
      m_systemStore(paths.shellState(), Storage::SQLiteUserDefaults::Access::readWrite, m_clock, m_log),
      m_outcomes({m_systemStore, m_clock, m_loop.mainQueue, m_loop.timers}),
      m_urlSession(std::make_unique<CountingURLSession>(m_upgrade.activity()), m_systemStore, m_clock),
      m_busAccess(openSessionBus(m_log)),
      m_notificationServer(makeNotificationServer()),
      m_preferences(m_shellState, m_notificationServer.get(), pushSourceText(options.push, m_strings)),
      m_appearance(makeAppearance())
{}

Device::~Device()
{
    m_instance->signals.setReloadHandler({});
}

Device::BusAccess Device::openSessionBus(const AdapterLog& log)
{
    try {
        return {std::make_unique<Bus::SessionBus>(log), {}};
    } catch (const std::runtime_error& error) {
        return {nullptr, error.what()};
    }
}

std::unique_ptr<Bus::NotificationServer> Device::makeNotificationServer() const
{
    if (!m_busAccess.bus)
        return nullptr;
    return std::make_unique<Bus::NotificationServer>(
        Bus::NotificationServer::Ports{*m_busAccess.bus, m_loop.mainQueue, m_loop.timers, m_log},
        Bus::NotificationServer::Application{applicationName, std::string(applicationIdentifier),
                                             m_strings.openAction});
}

std::unique_ptr<AppearanceSource> Device::makeAppearance() const
{
    if (auto fixed = FixedAppearance::fromEnvironment())
        return fixed;
    if (!m_busAccess.bus)
        return std::make_unique<FixedAppearance>();
    return std::make_unique<Bus::PortalAppearance>(*m_busAccess.bus, m_loop.mainQueue);
}

Push::PushServiceKind Device::pushServiceKind() const
{
    using Push::PushServiceKind;
    switch (m_options.push) {
    case PushSource::off:
        return PushServiceKind::off;
    case PushSource::local:
        return PushServiceKind::local;
    case PushSource::automatic:
        break;
    }
    return m_busAccess.bus ? PushServiceKind::unifiedPush : PushServiceKind::unavailable;
}

std::unique_ptr<PushService> Device::makePushService()
{
    using Push::PushServiceKind;
    switch (pushServiceKind()) {
    case PushServiceKind::off:
        return std::make_unique<Push::UnavailablePushService>(
            m_loop.mainQueue, "Remote notifications are turned off; start without --push off.");
    case PushServiceKind::local:
        return std::make_unique<LocalPushService>(
            LocalPushService::Ports{m_systemStore, m_loop.mainQueue, m_log}, m_paths.pushSocket);
    case PushServiceKind::unavailable:
        return std::make_unique<Push::UnavailablePushService>(m_loop.mainQueue, m_busAccess.error + ".");
    case PushServiceKind::unifiedPush:
        break;
    }
    const char* chosen = std::getenv("UNIFIEDPUSH_DISTRIBUTOR");
    return std::make_unique<Bus::UnifiedPushService>(
        Bus::UnifiedPushService::Ports{*m_busAccess.bus, m_systemStore, m_loop.mainQueue, m_loop.timers,
                                       m_log},
        Bus::UnifiedPushService::Settings{
            .serviceName = std::string(applicationIdentifier),
            .description = m_strings.pushDescription,
            .chosenDistributor = chosen != nullptr ? chosen : "",
        });
}

const Services& Device::connect(const SystemInterface& interface)
{
    std::vector<NotificationPresenter*> presenters{&interface.banner};
    if (m_notificationServer)
        presenters.insert(presenters.begin(), m_notificationServer.get());
    m_userNotificationCenter.emplace(
        Push::DeviceNotificationCenter::Ports{.state = m_shellState,
                                              .mainQueue = m_loop.mainQueue,
                                              .prompt = &interface.prompt,
                                              .presenters = std::move(presenters)});
    m_pushService = makePushService();
    m_application.emplace(Push::DeviceApplication::Ports{
        *m_pushService, pushServiceKind(), *m_userNotificationCenter, m_systemStore, m_clock,
        interface.openSettings, m_upgrade.activity(), m_outcomes});
    m_defaults.recordErrors(m_outcomes);
    watchForChanges();
    return m_services.emplace(Services{
        .userDefaults = m_defaults,
        .notificationCenter = m_notificationCenter,
        .mainQueue = m_loop.mainQueue,
        .utilityQueue = m_utilityQueue,
        .defaultQueue = m_defaultQueue,
        .timers = m_loop.timers,
        .clock = m_clock,
        .log = *m_instance->log,
        .urlSession = m_urlSession,
        .userNotificationCenter = *m_userNotificationCenter,
        .outcomes = m_outcomes,
        .application = *m_application,
        .bundleIdentifier = std::string(applicationIdentifier),
    });
}

bool Device::staysInBackground() const
{
    return m_options.isInBackground || m_instance->hasReplacedOther;
}

void Device::watchForChanges()
{
    try {
        m_watcher = std::make_unique<Files::FileSystemWatcher>();
        m_defaults.announceChanges(*m_watcher, m_notificationCenter, m_loop.mainQueue);
        m_upgrade.watch(*m_watcher);
    } catch (const std::system_error& error) {
        m_log.error(std::string("Changes to the managed configuration take effect only after a restart: ") +
                    error.what());
    }
    m_instance->signals.setReloadHandler(
        [this] { m_defaults.reloadPolicy(m_notificationCenter, m_loop.mainQueue); });
}

void Device::start()
{
    m_application->finishLaunching();
    if (m_busAccess.bus)
        m_busAccess.bus->start();
}

void Device::stop()
{
    if (m_busAccess.bus)
        m_busAccess.bus->stop();
}

} // namespace Platform::Linux
