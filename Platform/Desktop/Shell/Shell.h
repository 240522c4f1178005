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

/// The system's user interface, drawn on top of the application's content: the permission prompt, this
/// application's settings page, and banners if there is no notification server.
///
/// The QML is not loaded until there is something to show.
///
/// Threads: main. Ownership: references its ports, the window and the engine. When the window is destroyed,
/// the shell returns to its initial state. The engine must outlive the shell or the window.
class Shell final : public QObject, public PermissionPrompt, public NotificationPresenter {
    Q_OBJECT
    QML_NAMED_ELEMENT(ShellModel)
    QML_UNCREATABLE("made by the runtime")
    Q_PROPERTY(QString applicationName READ applicationName CONSTANT FINAL)
    Q_PROPERTY(bool isDark READ isDark NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(bool isMotionReduced READ isMotionReduced NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(bool isContrastHigh READ isContrastHigh NOTIFY appearanceChanged FINAL)
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

    /// `applicationName` is the name that users see.
    Shell(const Ports& ports, const std::string& applicationName);
    ~Shell() override;

    /// Draws into `window` from now on, in place of the previous window. `engine` is that of the window's
    /// content.
    void attach(QQmlEngine& engine, QQuickWindow& window);
    void setAppearance(const Appearance& appearance);
    /// Does nothing without a window.
    void openSettings();
    /// Updates an open settings page.
    void preferencesChanged() { m_settings.refresh(); }

    /// The request waits until there is a window and earlier requests are answered.
    void requestPermission(std::function<void(bool isGranted)> completion) override;
    /// Completes inside the call, with false if `options` do not include a banner, the window is not visible,
    /// or another banner is.
    void show(const UserNotification& notification, unsigned options,
              std::function<void(bool isShown)> completion, std::function<void()> onResponse) override;
    /// The handler is called when the window becomes visible and when a banner has disappeared.
    void onAvailable(std::function<void()> handler) override { m_availabilityHandler = std::move(handler); }

    [[nodiscard]] QString applicationName() const { return m_applicationName; }
    [[nodiscard]] bool isDark() const { return m_appearance.isDark; }
    [[nodiscard]] bool isMotionReduced() const { return m_appearance.isMotionReduced; }
    [[nodiscard]] bool isContrastHigh() const { return m_appearance.isContrastHigh; }
    [[nodiscard]] qreal textScale() const { return m_appearance.textScale; }
    /// Whether the user's last input came from the keyboard, so that the item with the focus shows a ring.
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
    void resetAfterWindow();
    void load();
    void updateDialogs();
    /// Disables the application's content while a dialog is open. Enabling it returns the focus to the item
    /// that had it.
    void setContentEnabled(bool isEnabled);
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
    bool m_isModal = false;
    QPointer<QQuickItem> m_focusBefore;
    /// Null until there is something to show.
    QPointer<QQuickItem> m_screen;
};

} // namespace Platform::Desktop
