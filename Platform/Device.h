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

/// The device settings of the command line.
struct DeviceOptions {
    std::optional<std::string> managedConfiguration = {};
    PushSource push = PushSource::automatic;
    bool isLoggingToStandardError = false;
    /// Start without a window, at login or for a push. It opens when the user launches the app.
    bool isInBackground = false;
};

/// The strings that the device, not a screen, shows to the user, in the user's language. UTF-8.
struct DeviceStrings {
    /// The label of the action that opens a notification.
    std::string openAction;
    /// What the system shows as the purpose of this application's pushes; at most 100 bytes.
    std::string pushDescription;
    /// The push source in the settings, for `PushSource::off` and `PushSource::local`.
    std::string pushTurnedOff;
    std::string pushFromThisDevice;
};

/// The event loop of the main thread, as the device uses it.
struct EventLoop {
    DispatchQueue& mainQueue;
    TimerScheduler& timers;
    /// Ends the program. May be called on any thread.
    std::function<void()> quit;
    /// Brings the program to the front; without a display, ends it. May be called on any thread.
    std::function<void()> activate;
    /// Whether a window can be shown.
    bool hasDisplay = true;
};

/// The parts of the system's user interface that are drawn in the application's window.
struct SystemInterface {
    PermissionPrompt& prompt;
    NotificationPresenter& banner;
    /// Shows this application's page in the system settings.
    std::function<void()> openSettings;
};

/// The device that the application runs on: builds and owns all adapters of one operating system. A port to
/// another system implements this class.
///
/// Threads: main. Ownership: the event loop must outlive the device.
class Device {
public:
    virtual ~Device() = default;

    virtual AppearanceSource& appearance() = 0;
    virtual NotificationPreferences& notificationPreferences() = 0;
    /// The system's own state for the application, such as its window's position.
    virtual UserDefaults& systemStore() = 0;

    /// Builds the adapters that need `interface`, and returns the services of the application. Called once.
    /// `interface` must outlive the event loop's last item.
    virtual const Services& connect(const SystemInterface& interface) = 0;
    /// Starts delivering configuration changes and pushes. Called once, after the application delegate is
    /// set.
    virtual void start() = 0;
    /// Stops delivering them.
    virtual void stop() = 0;
    /// Sets whether the application is in the foreground.
    virtual void setActive(bool isActive) = 0;
    /// Whether the program keeps running when its window is closed: it was started in the background, or
    /// took the place of an instance that was.
    [[nodiscard]] virtual bool staysInBackground() const = 0;
    /// Whether the application has a window, seen or not. Without one the device may restart the program.
    virtual void setHasWindow(bool hasWindow) = 0;
};

} // namespace Platform
