#pragma once

#include "Platform/Appearance.h"
#include "Platform/Services.h"
#include "Platform/Shell.h"

#include <functional>
#include <optional>
#include <string>

namespace Platform {

class DispatchQueue;
class TimerScheduler;
class UserDefaults;

/// Where pushes come from.
enum class PushSource { automatic, local, off };

/// What the command line may change about a device.
struct DeviceOptions {
    std::optional<std::string> managedConfiguration = {};
    PushSource push = PushSource::automatic;
    bool isLoggingToStandardError = false;
    /// For a push that waits: no window opens before the user asks for one.
    bool isStartedByBus = false;
};

/// The main thread, as the device sees it.
struct EventLoop {
    DispatchQueue& mainQueue;
    TimerScheduler& timers;
    /// Ends the program. Any thread.
    std::function<void()> quit;
    /// Brings the program to the front. Any thread.
    std::function<void()> activate;
};

/// What is drawn in the application's window in the system's name.
struct SystemInterface {
    PermissionPrompt& prompt;
    NotificationPresenter& banner;
    /// Shows the page of this application in the settings.
    std::function<void()> openSettings;
};

/// The device that the application runs on. Builds and owns the adapters of one system, in the order in which
/// they need each other.
///
/// Threads: main. Ownership: the event loop outlives the device.
class Device {
public:
    virtual ~Device() = default;

    virtual AppearanceSource& appearance() = 0;
    virtual NotificationPreferences& notificationPreferences() = 0;
    /// What the system remembers about the application, such as the place of its window.
    virtual UserDefaults& systemStore() = 0;

    /// Builds what needs `interface`, which must outlive the last call of the event loop, and returns all
    /// services of the application. Once.
    virtual const Services& connect(const SystemInterface& interface) = 0;
    /// Lets changes of the configuration and pushes come in. Once, with the delegate of the application set.
    virtual void start() = 0;
    /// Nothing comes in any more.
    virtual void stop() = 0;
    /// Whether the user has the application in front.
    virtual void setActive(bool isActive) = 0;
};

} // namespace Platform
