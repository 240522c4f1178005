#pragma once

#include <optional>
#include <string>

namespace Platform {

class Application;
class Clock;
class DispatchQueue;
class NotificationCenter;
class OutcomeRecorder;
class TimerScheduler;
class URLSession;
class UnifiedLog;
class UserDefaultsDomains;
class UserNotificationCenter;

/// The adapters of this process, chosen by its entry point. Only `shared()` functions take ports from here;
/// all other code receives them through constructors.
struct Services {
    UserDefaultsDomains& userDefaults;
    NotificationCenter& notificationCenter;
    /// The queue of the main thread.
    DispatchQueue& mainQueue;
    /// A worker thread with lowered priority.
    DispatchQueue& utilityQueue;
    /// A worker thread for background tasks.
    DispatchQueue& defaultQueue;
    TimerScheduler& timers;
    const Clock& clock;
    UnifiedLog& log;
    URLSession& urlSession;
    UserNotificationCenter& userNotificationCenter;
    OutcomeRecorder& outcomes;
    Application& application;
    /// The application's identifier; absent if it has none.
    std::optional<std::string> bundleIdentifier;
};

/// Sets the process-wide services. Must be called once, before any `shared()` function; `services` must
/// outlive every use.
void installServices(const Services& services);

/// Returns the installed services. Ends the process if none have been installed.
const Services& services();

} // namespace Platform
