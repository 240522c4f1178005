#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Device.h"
#include "Platform/ExitCode.h"
#include "Platform/Linux/Bus/NotificationServer.h"
#include "Platform/Linux/Bus/SessionBus.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/DeviceNotificationPreferences.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/ProgramUpgrade.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/Network/RecordingURLSession.h"
#include "Platform/NotificationCenter.h"
#include "Platform/OutcomeRecorder.h"
#include "Platform/Push/DeviceApplication.h"
#include "Platform/Push/DeviceNotificationCenter.h"
#include "Platform/Push/PushServiceState.h"
#include "Platform/Push/ShellState.h"
#include "Platform/PushService.h"
#include "Platform/Storage/SQLiteUserDefaults.h"
#include "Platform/SystemClock.h"

#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace Platform::Linux {

class ProgramRestart;

/// Opens missing standard descriptors, ignores signals about failed writes, keeps secrets out of core dumps
/// and blocks the signals that the device handles. Call it first, before any other thread starts.
void prepareProcess();

/// A Linux phone, tablet or desktop.
class Device final : public Platform::Device {
public:
    /// Returns the device, or this process's exit code if another program holds the instance lock. A running
    /// instance is brought to the front. `restart`, which must outlive the device, is requested when the
    /// program ends to make room for another version of it.
    static std::variant<std::unique_ptr<Platform::Device>, ExitCode>
    make(const DeviceOptions& options, const DevicePaths& paths, const EventLoop& loop,
         const DeviceStrings& strings, ProgramRestart& restart);
    ~Device() override;

    AppearanceSource& appearance() override { return *m_appearance; }
    NotificationPreferences& notificationPreferences() override { return m_preferences; }
    UserDefaults& systemStore() override { return m_systemStore; }
    const Services& connect(const SystemInterface& interface) override;
    void start() override;
    void stop() override;
    void setActive(bool isActive) override { m_application->setActive(isActive); }
    [[nodiscard]] bool staysInBackground() const override;
    void setHasWindow(bool hasWindow) override { m_upgrade.setHasWindow(hasWindow); }

private:
    /// The session bus, or the error if it cannot be opened.
    struct BusAccess {
        std::unique_ptr<Bus::SessionBus> bus;
        std::string error;
    };
    /// Ensures that only one instance runs. Built before all other adapters.
    struct Instance;

    Device(const DeviceOptions& options, const DevicePaths& paths, EventLoop loop, DeviceStrings strings,
           std::unique_ptr<Instance> instance, ProgramRestart& restart);

    void watchForChanges();
    static BusAccess openSessionBus(const AdapterLog& log);
    std::unique_ptr<AppearanceSource> makeAppearance() const;
    Push::PushServiceKind pushServiceKind() const;
    std::unique_ptr<PushService> makePushService();
    std::unique_ptr<Bus::NotificationServer> makeNotificationServer() const;

    const DeviceOptions m_options;
    const DevicePaths m_paths;
    const EventLoop m_loop;
    const DeviceStrings m_strings;
    const SystemClock m_clock;
    const std::unique_ptr<Instance> m_instance;
    const AdapterLog& m_log;
    ProgramUpgrade m_upgrade;
    NotificationCenter m_notificationCenter;
    DeviceDefaults m_defaults;
    Storage::SQLiteUserDefaults m_systemStore;
    OutcomeRecorder m_outcomes;
    Network::RecordingURLSession m_urlSession;
    WorkerQueue m_utilityQueue{"utility queue", WorkerQueue::Priority::utility};
    WorkerQueue m_defaultQueue{"default queue", WorkerQueue::Priority::default_};
    Push::ShellState m_shellState{m_systemStore};
    const BusAccess m_busAccess;
    const std::unique_ptr<Bus::NotificationServer> m_notificationServer;
    DeviceNotificationPreferences m_preferences;
    const std::unique_ptr<AppearanceSource> m_appearance;
    // Absent until `connect()`.
    std::optional<Push::DeviceNotificationCenter> m_userNotificationCenter;
    std::unique_ptr<PushService> m_pushService;
    std::optional<Push::DeviceApplication> m_application;
    std::optional<Services> m_services;
    std::unique_ptr<Files::FileSystemWatcher> m_watcher;
};

} // namespace Platform::Linux
