#include "Tests/App/ScreenTest.h"

#include <QPointingDevice>

/// A finger or the mouse moves from `start` through `moves`. In a right-to-left layout, it does so in a
/// mirror.
struct Swipe {
    const char* name;
    QPoint start;
    std::vector<QPoint> moves;
    /// The simulated time before each move of the mouse, in milliseconds; 0 is a finger, whose events have
    /// the real time.
    int rest;
    bool isCanceled;
    bool goesBack;
};

static const Swipe swipes[] = {
    {"slow and short", {5, 400}, {{40, 400}, {90, 400}, {91, 400}}, 200, false, false},
    {"slow and long", {5, 400}, {{80, 400}, {160, 400}, {260, 400}, {261, 400}}, 300, false, true},
    {"fling", {5, 400}, {{30, 400}, {60, 400}, {90, 400}}, 5, false, true},
    {"far, then a fling back",
     {5, 400},
     {{100, 400}, {200, 400}, {300, 400}, {260, 400}, {220, 400}},
     5,
     false,
     false},
    {"beyond the other edge", {5, 400}, {{100, 400}, {200, 400}, {319, 400}, {319, 400}}, 300, false, true},
    {"finger, long", {5, 400}, {{80, 400}, {160, 400}, {260, 400}}, 0, false, true},
    {"finger, canceled by the system", {5, 400}, {{80, 400}, {160, 400}, {260, 400}}, 0, true, false},
    {"finger, away from the edge", {60, 400}, {{120, 400}, {200, 400}, {300, 400}}, 0, false, false},
    {"from the other edge", {315, 400}, {{240, 400}, {160, 400}, {60, 400}}, 300, false, false},
    {"finger, vertical, at the edge", {5, 400}, {{5, 360}, {5, 300}, {5, 250}}, 0, false, false},
};

/// Moves of a finger are delivered once for each frame.
static void waitForFrame(QQuickWindow& window)
{
    bool isShown = false;
    const auto connection =
        QObject::connect(&window, &QQuickWindow::frameSwapped, &window, [&] { isShown = true; });
    window.update();
    constexpr int milliseconds = 20'000;
    EXPECT_TRUE(QTest::qWaitFor([&] { return isShown; }, milliseconds));
    QObject::disconnect(connection);
}

TEST_F(ScreenTest, SwipeFromTheEdgeGoesBackByDistanceOrVelocity)
{
    const std::unique_ptr<QPointingDevice> finger(QTest::createTouchDevice());
    appearance.set({.textScale = 2}); // So that the content is taller than the window.
    for (int number = 0; number < 2 * int(std::size(swipes)); ++number) {
        const auto& [name, start, moves, rest, isCanceled, goesBack] = swipes[number / 2];
        const bool isMirrored = number % 2 == 1;
        const auto seen = [&](QPoint point) {
            return isMirrored ? QPoint(320 - point.x(), point.y()) : point;
        };
        SCOPED_TRACE(std::string(name) + (isMirrored ? ", mirrored" : ""));
        QGuiApplication::setLayoutDirection(isMirrored ? Qt::RightToLeft : Qt::LeftToRight);
        open(Screen::detail, {320, 568});
        QTest::keyClick(&window, Qt::Key_Shift); // Shows the focus ring.
        const QQuickItem* const destination = item("navigation.destination");
        const QQuickItem* const scroll = item("QQuickFlickable", destination);
        if (rest > 0) {
            QTest::mousePress(&window, Qt::LeftButton, {}, seen(start));
            for (const QPoint& point : moves)
                QTest::mouseMove(&window, seen(point), rest);
            EXPECT_NE(item("detail.title"), nullptr) << "stays loaded during the swipe";
            QTest::mouseRelease(&window, Qt::LeftButton, {}, seen(moves.back()));
        } else {
            QTest::touchEvent(&window, finger.get()).press(0, seen(start));
            for (const QPoint& point : moves) {
                QTest::touchEvent(&window, finger.get()).move(0, seen(point));
                waitForFrame(window);
            }
            if (isCanceled)
                QCoreApplication::sendEvent(
                    &window, std::make_unique<QTouchEvent>(QEvent::TouchCancel, finger.get()).get());
            else
                QTest::touchEvent(&window, finger.get()).release(0, seen(moves.back()));
        }
        settle();
        EXPECT_EQ(item("focusRing"), nullptr);
        EXPECT_EQ(content->dashboard()->selectedCard(), goesBack ? Card::None : Card::Sso);
        EXPECT_EQ(destination->x(), !goesBack ? 0 : isMirrored ? -320 : 320);
        const bool isVertical = moves.back().x() == start.x();
        EXPECT_TRUE(goesBack || (scroll->property("contentY").toReal() > 0) == isVertical);
    }
    QGuiApplication::setLayoutDirection(Qt::LeftToRight);
}
