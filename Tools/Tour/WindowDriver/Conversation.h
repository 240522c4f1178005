#pragma once

#include "Tools/Tour/WindowDriver/FrameMeter.h"
#include "Tools/Tour/WindowDriver/Scene.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QLocalSocket>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>

namespace WindowDriver {

/// One connection: a request is a line with a JSON object, and so is its answer, which comes when what was
/// asked for is done; requests that come earlier wait. An answer with "error" says what was not there in
/// time.
///
///     {"do": "tap", "item": "welcome.getStarted"}                                  {}
///     {"do": "waitFor", "item": "dashboard", "timeout": 5000}
///                                               {"x": 0, "y": 0, "width": 390, "height": 844}
///
/// `timeout` is in milliseconds and may stand in every request. What acts on an item, or looks for it, waits
/// until it is on view, enabled and at rest. Lengths are in points of the window.
///
/// Threads: main, whose event loop it never blocks. Ownership: belongs to its parent, and goes when the other
/// side does.
class Conversation final : public QObject {
    Q_OBJECT

public:
    Conversation(QLocalSocket& socket, QObject& parent);

private:
    using Condition = std::function<bool()>;
    using Description = std::function<QString()>;
    using Action = std::function<void()>;
    using Command = void (Conversation::*)();

    void readNext();
    void perform();
    void answer(const QJsonObject& result = {});
    /// Runs `action`; what it throws is the answer.
    void attempt(const Action& action);

    /// Goes on with `then` as soon as `isReached` answers true, or answers that `expected` did not happen in
    /// time.
    void waitUntil(Condition isReached, Description expected, Action then);
    void poll();
    /// With a place on the part of the item that is on view.
    void whenReady(const std::function<void(QQuickItem&, QPoint)>& act);
    void whenFresh(const Action& then);

    QQuickWindow& window();
    QQuickItem& item();
    bool isAtRest(const QQuickItem& item);
    bool isFresh(std::int64_t sinceFrame);
    [[nodiscard]] QString obstacle() const;
    [[nodiscard]] QString textArgument(const char* name) const;
    [[nodiscard]] double numberArgument(const char* name) const;

    // Commands.cpp

    void showWindow();
    void waitForItem();
    void waitUntilGone();
    void waitForProperty();
    void tap();
    void doubleTap();
    void touchTap();
    void press();
    void release();
    void swipe();
    void key();
    void property();
    void accessible();
    void names();
    void focus();
    void resize();
    void grab();
    void startFrames();
    void stopFrames();

    QLocalSocket& m_socket;
    FrameMeter m_frames;
    QJsonObject m_request;
    bool m_isBusy = false;
    std::optional<QPoint> m_pressedPlace;
    QElapsedTimer m_pressTime;

    Condition m_isReached;
    Description m_expected;
    Action m_then;
    QDeadlineTimer m_deadline;
    QTimer m_poll;

    std::optional<Pose> m_pose;
    QElapsedTimer m_poseAge;
    std::int64_t m_poseFrame = 0;
};

} // namespace WindowDriver
