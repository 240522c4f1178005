#pragma once

#include "Platform/Appearance.h"
#include "Platform/Desktop/Shell/NotificationBanner.h"
#include "Platform/Desktop/Shell/PermissionPanel.h"
#include "Platform/Desktop/Shell/SettingsSheet.h"
#include "Platform/Shell.h"

#include <QObject>
#include <QPointer>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QString>

#include <functional>
#include <string>
#include <utility>

namespace Platform::Desktop {

/// What the system draws in the application's window, above everything of its own: the question for
/// permission, the page of the application in the settings, and banners where nobody else shows them.
///
/// Nothing of it is loaded before there is something to show.
///
/// Threads: main. Ownership: refers to its ports, and neither owns the window nor the engine: once the window
/// has gone it is as before the first one came. The engine outlives the shell or the window.
class Shell final : public QObject, public PermissionPrompt, public NotificationPresenter {
    Q_OBJECT
    QML_NAMED_ELEMENT(ShellModel)
    QML_UNCREATABLE("made by the runtime")
    Q_PROPERTY(QString applicationName READ applicationName CONSTANT FINAL)
    Q_PROPERTY(bool isDark READ isDark NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(bool isMotionReduced READ isMotionReduced NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(qreal textScale READ textScale NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(bool isKeyboardInUse READ isKeyboardInUse NOTIFY isKeyboardInUseChanged FINAL)
    Q_PROPERTY(Platform::Desktop::PermissionPanel* permission READ permission CONSTANT FINAL)
    Q_PROPERTY(Platform::Desktop::SettingsSheet* settings READ settings CONSTANT FINAL)
    Q_PROPERTY(Platform::Desktop::NotificationBanner* banner READ banner CONSTANT FINAL)

public:
    struct Ports {
        NotificationPreferences& preferences;
        TimerScheduler& timers;
    };

    /// `applicationName` is the one for people.
    Shell(const Ports& ports, const std::string& applicationName);
    ~Shell() override;

    /// From now on draws into `window`, and into no other. `engine` is the one of the window's content.
    void attach(QQmlEngine& engine, QQuickWindow& window);
    void setAppearance(const Appearance& appearance);
    /// Nothing happens without a window.
    void openSettings();
    /// The preferences are not what they were; an open page shows it.
    void preferencesChanged() { m_settings.refresh(); }

    /// The question waits until there is a window, and longer if others were asked before.
    void requestPermission(std::function<void(bool isGranted)> completion) override;
    /// Completes at once: false without the banner among `options`, without a window that can be seen, and
    /// while another banner is on view.
    void show(const UserNotification& notification, unsigned options,
              std::function<void(bool isShown)> completion, std::function<void()> onResponse) override;
    /// Called when the window comes on view, and when a banner has left it.
    void onAvailable(std::function<void()> handler) override { m_availabilityHandler = std::move(handler); }

    [[nodiscard]] QString applicationName() const { return m_applicationName; }
    [[nodiscard]] bool isDark() const { return m_appearance.isDark; }
    [[nodiscard]] bool isMotionReduced() const { return m_appearance.isMotionReduced; }
    [[nodiscard]] qreal textScale() const { return m_appearance.textScale; }
    /// The user's last input came from there: the item with the focus shows it.
    [[nodiscard]] bool isKeyboardInUse() const { return m_isKeyboardInUse; }
    [[nodiscard]] PermissionPanel* permission() { return &m_permission; }
    [[nodiscard]] SettingsSheet* settings() { return &m_settings; }
    [[nodiscard]] NotificationBanner* banner() { return &m_banner; }

    bool eventFilter(QObject* watched, QEvent* event) override;

Q_SIGNALS:
    void appearanceChanged();
    void isKeyboardInUseChanged();

private:
    void detach();
    void windowHasGone();
    void load();
    [[nodiscard]] bool isWindowSeen() const;
    void setKeyboardInUse(bool isInUse);

    const QString m_applicationName;
    PermissionPanel m_permission;
    SettingsSheet m_settings;
    NotificationBanner m_banner;
    Appearance m_appearance;
    bool m_isKeyboardInUse = false;
    std::function<void()> m_availabilityHandler = [] {};
    QPointer<QQmlEngine> m_engine;
    QPointer<QQuickWindow> m_window;
    /// Absent until there is something to show.
    QPointer<QQuickItem> m_screen;
};

} // namespace Platform::Desktop
