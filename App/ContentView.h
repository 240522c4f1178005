#pragma once

#include "App/MainDashboardView.h"
#include "App/WelcomeView.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

#include <memory>

namespace Core {
class Logger;
}
namespace Platform {
class Application;
class DispatchQueue;
class UserDefaults;
} // namespace Platform
namespace PushNotifications {
class NotificationPermissionManager;
}

namespace App {

/// The root view of the window: the welcome screen until the user taps "Get Started", then the dashboard.
///
/// Threads: main. Ownership: the ports must outlive it; owns the views.
class ContentView final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(ContentViewModel)
    QML_UNCREATABLE("created by the application")
    Q_PROPERTY(bool showWelcome READ showWelcome NOTIFY showWelcomeChanged FINAL)
    Q_PROPERTY(App::WelcomeView* welcome READ welcome CONSTANT FINAL)
    Q_PROPERTY(App::MainDashboardView* dashboard READ dashboard NOTIFY showWelcomeChanged FINAL)

public:
    struct Ports {
        Core::Logger& logger;
        /// The standard defaults.
        Platform::UserDefaults& defaults;
        PushNotifications::NotificationPermissionManager& permissionManager;
        Platform::Application& application;
        Platform::DispatchQueue& mainQueue;
    };

    /// Reads from `defaults` whether to show the welcome screen.
    explicit ContentView(const Ports& ports);

    [[nodiscard]] bool showWelcome() const { return m_showWelcome; }
    [[nodiscard]] WelcomeView* welcome() const { return m_welcome.get(); }
    /// Null while the welcome screen is shown.
    [[nodiscard]] MainDashboardView* dashboard() const { return m_dashboard.get(); }

Q_SIGNALS:
    void showWelcomeChanged();

private:
    void setShowWelcome(bool showWelcome);

    const Ports m_ports;
    bool m_showWelcome;
    std::unique_ptr<WelcomeView> m_welcome;
    std::unique_ptr<MainDashboardView> m_dashboard;
};

} // namespace App
