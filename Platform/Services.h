#pragma once

#include <optional>
#include <string>

namespace Platform {

class Application;
class Clock;
class DispatchQueue;
class NotificationCenter;
class TimerScheduler;
class URLSession;
class UnifiedLog;
class UserDefaultsDomains;
class UserNotificationCenter;

/// The adapters that this process runs on, as its entry point chose them. Services take their ports from here
/// only where they build their process-wide `shared()` instance.
struct Services {
    UserDefaultsDomains& userDefaults;
    NotificationCenter& notificationCenter;
    /// The queue of the main thread.
    DispatchQueue& mainQueue;
    /// A worker of lowered priority.
    DispatchQueue& utilityQueue;
    /// A worker for tasks that nobody waits for.
    DispatchQueue& defaultQueue;
    TimerScheduler& timers;
    const Clock& clock;
    UnifiedLog& log;
    URLSession& urlSession;
    UserNotificationCenter& userNotificationCenter;
    Application& application;
    /// The application's identifier; absent when it has none.
    std::optional<std::string> bundleIdentifier;
};

/// Makes `services` the process-wide ones. Once, on the main thread, before any `shared()` is called; the
/// object must outlive every use.
void installServices(const Services& services);

/// The installed services; without any the process ends.
const Services& services();

} // namespace Platform
