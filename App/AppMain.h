#pragma once

#include "App/ContentView.h"
#include "App/NotificationAppDelegate.h"

#include <memory>

namespace Platform {
class Application;
}

namespace App {

/// Sets up logging, then the managed configuration, before any screen exists. Requires installed services.
///
/// Threads: main.
class AppMain {
public:
    AppMain();

    /// Creates the content of the main window. Owned by this object.
    ContentView& body();
    /// Creates the delegate and registers it with `application`.
    void installDelegate(Platform::Application& application);

private:
    static void setupLogging();
    static void setupManagedConfiguration();

    std::shared_ptr<NotificationAppDelegate> m_appDelegate;
    std::unique_ptr<ContentView> m_contentView;
};

} // namespace App
