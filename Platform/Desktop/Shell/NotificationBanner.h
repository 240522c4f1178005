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

/// Shows one notification at a time at the top of the window, for a few seconds.
///
/// Threads: main.
class NotificationBanner final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(NotificationBannerModel)
    QML_UNCREATABLE("made by the shell")
    Q_PROPERTY(bool isShown READ isShown NOTIFY isShownChanged FINAL)
    /// Those of the notification on view, and of the one that is leaving it; empty when it has none.
    Q_PROPERTY(QString title READ title NOTIFY notificationChanged FINAL)
    Q_PROPERTY(QString body READ body NOTIFY notificationChanged FINAL)

public:
    static constexpr std::chrono::seconds viewTime{5};

    explicit NotificationBanner(TimerScheduler& timers) : m_timers(timers) {}

    /// Returns whether it is on view now: false while another one is. `onResponse` as for a
    /// `NotificationPresenter`.
    bool show(const UserNotification& notification, std::function<void()> onResponse);
    /// There is no window any more.
    void clear();

    [[nodiscard]] bool isShown() const { return m_isShown; }
    [[nodiscard]] QString title() const { return m_current.title; }
    [[nodiscard]] QString body() const { return m_current.body; }

    /// The user tapped it, or put it away.
    Q_INVOKABLE void respond();
    /// While it is held, by a finger or the keyboard's focus, it does not leave by itself; afterwards its
    /// time starts again.
    Q_INVOKABLE void hold(bool isHeld);
    /// Nothing is seen of it any more. The next one can come after whatever runs now: without motion, that is
    /// the very change which made it go.
    Q_INVOKABLE void leave();

Q_SIGNALS:
    void isShownChanged();
    void notificationChanged();
    /// The next one can be shown.
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
    /// From the moment a banner comes on view until it has left it.
    bool m_isOnView = false;
    std::unique_ptr<Timer> m_timer;
};

} // namespace Platform::Desktop
