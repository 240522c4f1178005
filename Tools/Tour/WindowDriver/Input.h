#pragma once

#include <QPoint>
#include <QString>

#include <chrono>

class QQuickWindow;

namespace WindowDriver {

// What a user does, let in where the system's own events come in. Places are in points of the window.
// Threads: main; except for touches, other events of the main thread may run before a call returns.

/// The mouse has a time of its own: two taps in a row are never a double tap.
void pressMouse(QQuickWindow& window, QPoint place);
/// `held` is how long the button was down.
void releaseMouse(QQuickWindow& window, QPoint place, std::chrono::milliseconds held = {});
void doubleTapMouse(QQuickWindow& window, QPoint place);

/// One finger, in real time.
void pressFinger(QQuickWindow& window, QPoint place);
void moveFinger(QQuickWindow& window, QPoint place);
void liftFinger(QQuickWindow& window, QPoint place);

/// `key` as shortcuts are written: "Esc", "Tab", "Return", "Space", "Back", "Ctrl+Q". False when there is no
/// such key.
bool typeKey(QQuickWindow& window, const QString& key);

} // namespace WindowDriver
