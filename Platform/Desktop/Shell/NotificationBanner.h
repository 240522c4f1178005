#pragma once

#include "Platform/Timer.h"
#include "Platform/UserNotificationCenter.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <chrono>
#include <functional>
#include <memory>

namespace Platform::Desktop {

/// A banner at the top of the window that shows one notification at a time for a few seconds.
///
/// Threads: main.
class NotificationBanner final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(NotificationBannerModel)
    QML_UNCREATABLE("made by the shell")
    Q_PROPERTY(bool isShown READ isShown NOTIFY isShownChanged FINAL)
    /// The text of the visible or disappearing notification; empty if it has none.
    Q_PROPERTY(QString title READ title NOTIFY notificationChanged FINAL)
    Q_PROPERTY(QString body READ body NOTIFY notificationChanged FINAL)

public:
    static constexpr std::chrono::seconds viewTime{5};

    explicit NotificationBanner(TimerScheduler& timers) : m_timers(timers) {}

    /// Returns whether the notification is shown: false while another one is visible. `onResponse` is as for
    /// `NotificationPresenter`.
    bool show(const UserNotification& notification, std::function<void()> onResponse);
    /// Resets the banner after the window was closed.
    void clear();

    [[nodiscard]] bool isShown() const { return m_isShown; }
    [[nodiscard]] QString title() const { return m_current.title; }
    [[nodiscard]] QString body() const { return m_current.body; }

    /// Called when the user taps or dismisses the banner.
    Q_INVOKABLE void respond();
    /// Stops the timer while a finger or the keyboard focus is on the banner, and restarts it afterwards.
    Q_INVOKABLE void hold(bool isHeld);
    /// Called when the banner has disappeared. Frees the banner asynchronously: without animation, this call
    /// is part of the very change that hides it.
    Q_INVOKABLE void leave();

Q_SIGNALS:
    void isShownChanged();
    void notificationChanged();
    /// The next notification can be shown.
    void becameFree();

private:
    struct Banner {
        QString title;
        QString body;
        std::function<void()> onResponse;
    };

    void setShown(bool isShown);
    void startTimer();

    TimerScheduler& m_timers;
    Banner m_current;
    bool m_isShown = false;
    /// Whether any part of a banner is visible, animations included.
    bool m_isOnView = false;
    std::unique_ptr<Timer> m_timer;
};

} // namespace Platform::Desktop
