#include "Tests/App/ScreenTest.h"

#include <QPointingDevice>
#include <QSignalSpy>

/// A finger or the mouse moves from `start` through `moves`. In a right-to-left layout, it does so in a
/// mirror.
struct Swipe {
    const char* name;
    /// From this distance to the left edge of a window of 320 by 568, at a height of 400.
    int start;
    /// The horizontal position after each move; the vertical one if the swipe is vertical.
    std::vector<int> moves;
    /// The simulated time before each move of the mouse, in milliseconds; 0 is a finger, whose events have
    /// the real time.
    int rest;
    bool goesBack = false, isCanceled = false, isVertical = false;
};

static const Swipe swipes[] = {
    {"slow and short", 5, {40, 90, 91}, 200},
    {"slow and long", 5, {80, 160, 260, 261}, 300, true},
    {"fling", 5, {30, 60, 90}, 5, true},
    {"far, then a fling back", 5, {100, 200, 300, 260, 220}, 5},
    {"finger, beyond both edges", 19, {7, 1, 100, 400, 400}, 0, true},
    {"finger, canceled by the system", 5, {80, 160, 260}, 0, false, true},
    {"finger, away from the edge", 60, {120, 200, 300}, 0},
    {"finger, vertical, at the edge", 5, {360, 300, 250}, 0, false, false, true},
};

TEST_F(ScreenTest, SwipeFromTheEdgeGoesBackByDistanceOrVelocity)
{
    const std::unique_ptr<QPointingDevice> finger(QTest::createTouchDevice());
    QSignalSpy frames(&window, &QQuickWindow::frameSwapped);
    appearance.set({.textScale = 2}); // So that the content is taller than the window.
    for (int number = 0; number < 2 * int(std::size(swipes)); ++number) {
        const Swipe& swipe = swipes[number / 2];
        const bool isMirrored = number % 2 == 1;
        const auto seen = [&](int position) {
            const QPoint point = swipe.isVertical && position != swipe.start ? QPoint(swipe.start, position)
                                                                             : QPoint(position, 400);
            return isMirrored ? QPoint(320 - point.x(), point.y()) : point;
        };
        SCOPED_TRACE(std::string(swipe.name) + (isMirrored ? ", mirrored" : ""));
        QGuiApplication::setLayoutDirection(isMirrored ? Qt::RightToLeft : Qt::LeftToRight);
        open(Screen::detail, {320, 568});
        QTest::keyClick(&window, Qt::Key_Shift); // Shows the focus ring.
        const QQuickItem* const destination = item("navigation.destination");
        const QQuickItem* const scroll = item("QQuickFlickable", destination);
        if (swipe.rest > 0) {
            QTest::mousePress(&window, Qt::LeftButton, {}, seen(swipe.start));
            for (const int point : swipe.moves)
                QTest::mouseMove(&window, seen(point), swipe.rest);
            QTest::mouseRelease(&window, Qt::LeftButton, {}, seen(swipe.moves.back()));
        } else {
            QTest::touchEvent(&window, finger.get()).press(0, seen(swipe.start));
            for (const int point : swipe.moves) {
                QTest::touchEvent(&window, finger.get()).move(0, seen(point));
                window.update();
                // Moves are delivered once for each frame. The screen moves only outward.
                EXPECT_TRUE(frames.wait(20'000) && destination->x() * (isMirrored ? -1 : 1) >= 0);
            }
            EXPECT_NE(item("detail.title"), nullptr) << "stays loaded during the swipe";
            if (swipe.isCanceled)
                QCoreApplication::sendEvent(
                    &window, std::make_unique<QTouchEvent>(QEvent::TouchCancel, finger.get()).get());
            else
                QTest::touchEvent(&window, finger.get()).release(0, seen(swipe.moves.back()));
        }
        settle();
        EXPECT_EQ(item("focusRing"), nullptr);
        EXPECT_EQ(content->dashboard()->selectedCard(), swipe.goesBack ? Card::None : Card::Sso);
        EXPECT_EQ(destination->x(), !swipe.goesBack ? 0 : isMirrored ? -320 : 320);
        EXPECT_TRUE(swipe.goesBack || (scroll->property("contentY").toReal() > 0) == swipe.isVertical);
    }
    QGuiApplication::setLayoutDirection(Qt::LeftToRight);
}
