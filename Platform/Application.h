#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <functional>
#include <memory>
#include <string_view>

namespace Platform {

/// The result of a background fetch. The values match the platform's.
enum class BackgroundFetchResult { newData = 0, noData = 1, failed = 2 };

/// Receives the application's lifecycle and push events.
///
/// Threads: main.
class ApplicationDelegate {
public:
    /// `isStored` is whether the notification is committed to the history; only then may the runtime
    /// acknowledge the push to its sender.
    using FetchCompletion = std::function<void(BackgroundFetchResult result, bool isStored)>;

    virtual ~ApplicationDelegate() = default;

    /// Called once, before any other operation.
    virtual bool didFinishLaunching() = 0;
    /// Called after each registration, and whenever the token changes.
    virtual void didRegisterForRemoteNotifications(const Data& deviceToken) = 0;
    virtual void didFailToRegisterForRemoteNotifications(const Error& error) = 0;
    /// Called for a push that is meant for the application rather than the user. The delegate must call
    /// `fetchCompletionHandler` exactly once, on any thread.
    virtual void didReceiveRemoteNotification(const PropertyList::Dictionary& userInfo,
                                              FetchCompletion fetchCompletionHandler) = 0;
};

/// The runtime of the application.
///
/// Threads: main. Implementations must call the delegate on the main thread, never inside one of these
/// operations, and must hold it weakly.
class Application {
public:
    /// The URL that opens this application's page in the system settings.
    static constexpr std::string_view openSettingsURLString = "app-settings:";

    virtual ~Application() = default;

    virtual void setDelegate(std::weak_ptr<ApplicationDelegate> delegate) = 0;
    /// Requests a device token. The delegate receives the token or an error; a token may still follow an
    /// error, for example when a distributor starts later.
    virtual void registerForRemoteNotifications() = 0;
    /// Opens `url`. Does nothing if no program handles it.
    virtual void open(std::string_view url) = 0;
};

} // namespace Platform
