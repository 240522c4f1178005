#include "App/Launch.h"

#include "App/AppMain.h"
#include "App/AppearanceModel.h"
#include "App/Design/Artwork.h"
#include "App/Translation.h"
#include "Core/Logger.h"
#include "Platform/Desktop/GuiApplication.h"
#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Desktop/Shell/Shell.h"
#include "Platform/Desktop/WindowGroup.h"
#include "Platform/RememberedAppearance.h"
#include "Platform/Timer.h"

#include <QCoreApplication>
#include <QIcon>
#include <QLocale>
#include <QPixmap>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace App {

namespace {

using namespace Platform;
using namespace std::chrono_literals;

constexpr const char* applicationName = "Quorvane MDM";
/// How long the first window waits for the appearance. A running portal has usually answered by the time the
/// content is loaded; where no portal runs, a longer wait would be noticed.
constexpr auto appearanceTime = 20ms;

/// Shows the app's logo as the icon of the windows and in the shell.
void showIcon()
{
    QIcon icon;
    for (const int pixels : {32, 64, 128})
        icon.addPixmap(QPixmap::fromImage(Design::drawing(QStringLiteral("QvLogo"), pixels)));
    QGuiApplication::setWindowIcon(icon);
}

/// The only window. Exists only while it is open.
class MainWindow {
public:
    struct Ports {
        Device& device;
        DispatchQueue& mainQueue;
        TimerScheduler& timers;
        Desktop::Shell& shell;
        AppMain& app;
    };

    /// `content` may be empty; `show()` then fills it. It must outlive this object.
    MainWindow(const Ports& ports, std::optional<Desktop::WindowContent>& content)
        : m_ports(ports),
          m_rememberedAppearance(ports.device.appearance(), ports.device.systemStore()),
          m_content(content)
    {
        const auto apply = [this](const Appearance& value) {
            m_appearance.set(value);
            m_ports.shell.setAppearance(value);
        };
        apply(m_rememberedAppearance.current().value_or(Appearance()));
        m_rememberedAppearance.observe([this, apply](const Appearance& value) {
            apply(value);
            if (m_appearanceTimeout)
                reveal();
        });
    }

    static void load(std::optional<Desktop::WindowContent>& content)
    {
        content.emplace(QStringLiteral("Quorvane.App"), QStringLiteral("ContentView"));
    }

    /// Shows the window or brings it to the front. If no appearance is remembered, as at the first launch,
    /// the window waits a moment for the system's, so that the first frame has its colors and text size.
    void show()
    {
        if (m_appearanceTimeout)
            return;
        if (m_group) {
            m_group->raise();
            return;
        }
        m_ports.device.setHasWindow(true);
        if (!m_content)
            load(m_content);
        m_group.emplace(*m_content, m_ports.device.systemStore(), QString::fromUtf8(applicationName));
        m_ports.shell.attach(m_content->engine(), m_group->window());
        // After the first frame, so as not to delay it.
        QObject::connect(&m_group->window(), &QQuickWindow::frameSwapped, &m_group->window(), &showIcon,
                         static_cast<Qt::ConnectionType>(Qt::AutoConnection | Qt::SingleShotConnection));
        m_group->load({{"view", QVariant::fromValue(&m_ports.app.body())},
                       {"appearance", QVariant::fromValue(&m_appearance)}});
        if (m_rememberedAppearance.current())
            m_group->show();
        else
            m_appearanceTimeout = m_ports.timers.scheduledTimer(appearanceTime, [this] {
                // Without a portal, the next launches need not wait.
                m_rememberedAppearance.remember(Appearance());
                reveal();
            });
    }
    /// From now on, closing the window does not end the program but frees the window's memory.
    void keepRunningWhenClosed()
    {
        QGuiApplication::setQuitOnLastWindowClosed(false);
        QObject::connect(qGuiApp, &QGuiApplication::lastWindowClosed, &m_ports.shell,
                         [this] { m_ports.mainQueue.async([this] { releaseIfClosed(); }); });
    }

private:
    void reveal()
    {
        m_appearanceTimeout.reset();
        m_group->show();
    }
    void releaseIfClosed()
    {
        if (!m_group || m_appearanceTimeout || m_group->window().isVisible())
            return;
        m_group.reset();
        m_content.reset();
        m_ports.device.setHasWindow(false);
    }

    const Ports m_ports;
    RememberedAppearance m_rememberedAppearance;
    std::optional<Desktop::WindowContent>& m_content;
    AppearanceModel m_appearance;
    std::optional<Desktop::WindowGroup> m_group;
    /// Set while the window is hidden because the appearance is unknown.
    std::unique_ptr<Timer> m_appearanceTimeout;
};

/// The device's strings in the user's language.
DeviceStrings deviceStrings()
{
    const auto string = [](const QString& translated) { return translated.toStdString(); };
    return {.openAction = string(QCoreApplication::translate("Device", "Open")),
            .pushDescription = string(
                QCoreApplication::translate("Device", "Messages from your organization about this device")),
            .pushTurnedOff = string(QCoreApplication::translate("Device", "Turned off")),
            .pushFromThisDevice = string(QCoreApplication::translate("Device", "This device itself"))};
}

} // namespace

ExitCode launch(int& argc, char** argv, const DeviceOptions& options, const MakeDevice& makeDevice)
{
    Desktop::QtRunLoop runLoop(Desktop::makeGuiApplication(
        argc, argv, options.isInBackground ? Desktop::Display::optional : Desktop::Display::needed));
    installTranslation(*qGuiApp, QLocale::system().uiLanguages());
    std::function<void()> show = [] {};
    auto made = makeDevice({.mainQueue = runLoop,
                            .timers = runLoop,
                            .quit = [&] { runLoop.quit(); },
                            .activate = [&] { runLoop.async([&] { show(); }); },
                            .hasDisplay = Desktop::hasDisplay()},
                           deviceStrings());
    if (const auto* exitCode = std::get_if<ExitCode>(&made))
        return *exitCode;
    const std::unique_ptr<Device> device = std::get<std::unique_ptr<Device>>(std::move(made));

    std::optional<Desktop::WindowContent> windowContent;
    if (!options.isInBackground)
        MainWindow::load(windowContent);
    Desktop::Shell shell({device->notificationPreferences(), runLoop}, applicationName);
    const Services& services = device->connect({shell, shell, [&] { shell.openSettings(); }});
    installServices(services);
    QGuiApplication::setDesktopFileName(QString::fromStdString(services.bundleIdentifier.value_or("")));

    AppMain app;
    if (const char* debug = std::getenv("QUORVANE_LOG_DEBUG");
        debug != nullptr && std::string_view(debug) == "1")
        Core::LoggingConfig::setVerboseLoggingEnabled(true);
    app.installDelegate(services.application);

    MainWindow window({*device, runLoop, runLoop, shell, app}, windowContent);
    // An instance without a display ends so that the instance launched by the user can run.
    show = [&] { Desktop::hasDisplay() ? window.show() : runLoop.quit(); };
    if (device->staysInBackground())
        window.keepRunningWhenClosed();
    device->setActive(QGuiApplication::applicationState() == Qt::ApplicationActive);
    QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, &shell,
                     [&](Qt::ApplicationState state) {
                         device->setActive(state == Qt::ApplicationActive);
                         shell.preferencesChanged();
                     });
    if (!options.isInBackground)
        window.show();
    device->start();
    runLoop.run();
    device->stop();
    return success;
}

} // namespace App
