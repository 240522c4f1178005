#include "Tools/Tour/WindowDriver/Input.h"

#include <QKeySequence>
#include <QQuickWindow>
#include <QTest>

namespace WindowDriver {

namespace {

constexpr int finger = 0;
constexpr bool withoutOtherEvents = false;

/// Starts a step of the one finger, on a screen that is made at its first touch.
QTest::QTouchEventSequence touch(QQuickWindow& window)
{
    static QPointingDevice* const screen = QTest::createTouchDevice();
    return QTest::touchEvent(&window, screen, false);
}

} // namespace

void pressMouse(QQuickWindow& window, QPoint place)
{
    QTest::mousePress(&window, Qt::LeftButton, {}, place);
}

void releaseMouse(QQuickWindow& window, QPoint place, std::chrono::milliseconds held)
{
    QTest::mouseRelease(&window, Qt::LeftButton, {}, place, static_cast<int>(held.count()));
}

void doubleTapMouse(QQuickWindow& window, QPoint place)
{
    QTest::mouseDClick(&window, Qt::LeftButton, {}, place);
}

void pressFinger(QQuickWindow& window, QPoint place)
{
    touch(window).press(finger, place).commit(withoutOtherEvents);
}

void moveFinger(QQuickWindow& window, QPoint place)
{
    touch(window).move(finger, place).commit(withoutOtherEvents);
}

void liftFinger(QQuickWindow& window, QPoint place)
{
    touch(window).release(finger, place).commit(withoutOtherEvents);
}

bool typeKey(QQuickWindow& window, const QString& key)
{
    const auto keys = QKeySequence::fromString(key);
    if (keys.count() != 1 || keys[0].key() == Qt::Key_unknown)
        return false;
    QTest::keyClick(&window, keys[0].key(), keys[0].keyboardModifiers());
    return true;
}

} // namespace WindowDriver
