#pragma once

#include "App/ContentView.h"
#include "App/NotificationAppDelegate.h"

#include <memory>

namespace Platform {
class Application;
}

namespace App {

/// The application entry: sets up logging and the managed configuration, in that order, before any screen
/// exists. The process-wide services must be installed.
///
/// Threads: main.
class AppMain {
public:
    AppMain();

    /// The content of the only window.
    ContentView& body();
    /// Makes the delegate and lets `application` call it.
    void installDelegate(Platform::Application& application);

private:
    static void setupLogging();
    static void setupManagedConfiguration();

    std::shared_ptr<NotificationAppDelegate> m_appDelegate;
    std::unique_ptr<ContentView> m_contentView;
};

} // namespace App
