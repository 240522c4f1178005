#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <functional>
#include <memory>
#include <string_view>

namespace Platform {

/// What a background fetch came to. The numbers are the system's own.
enum class BackgroundFetchResult { newData = 0, noData = 1, failed = 2 };

/// What the runtime tells the application. Threads: main.
class ApplicationDelegate {
public:
    /// `isStored`: whether the record of the notification is committed; only then may the runtime acknowledge
    /// the notification to its sender.
    using FetchCompletion = std::function<void(BackgroundFetchResult result, bool isStored)>;

    virtual ~ApplicationDelegate() = default;

    /// Once, after the application's entry point and before any other call.
    virtual bool didFinishLaunching() = 0;
    /// After each registration, and whenever the token changes.
    virtual void didRegisterForRemoteNotifications(const Data& deviceToken) = 0;
    virtual void didFailToRegisterForRemoteNotifications(const Error& error) = 0;
    /// A notification that asks for the application rather than the user. `fetchCompletionHandler` is to be
    /// called exactly once, on any thread.
    virtual void didReceiveRemoteNotification(const PropertyList::Dictionary& userInfo,
                                              FetchCompletion fetchCompletionHandler) = 0;
};

/// The running application, as its runtime offers it.
///
/// Threads: main. Implementers owe: the delegate is called on the main thread, never inside one of these
/// operations, and held weakly.
class Application {
public:
    /// Opens the page of this application in the settings of the system.
    static constexpr std::string_view openSettingsURLString = "app-settings:";

    virtual ~Application() = default;

    virtual void setDelegate(std::weak_ptr<ApplicationDelegate> delegate) = 0;
    /// The delegate gets the token, or the error; an error may be followed by a token once what was missing
    /// has come.
    virtual void registerForRemoteNotifications() = 0;
    /// Opens what the address stands for; nothing happens when nobody can.
    virtual void open(std::string_view url) = 0;
};

} // namespace Platform
