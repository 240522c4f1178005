#include "Tests/App/ScreenTest.h"

static constexpr QSize windowSizes[] = {{320, 480},  {320, 568},  {390, 844},
                                        {768, 1024}, {1024, 768}, {1366, 1024}};
static constexpr double textScales[] = {1, 1.25, 2};

/// Returns what is visible of an item, in points of the window.
static QRectF visibleArea(const QQuickItem* item)
{
    QRectF visible = item->mapRectToScene(item->boundingRect()) & QRectF({}, item->window()->size());
    for (const QQuickItem* above = item; above != nullptr; above = above->parentItem()) {
        if (above->clip())
            visible &= above->mapRectToScene(above->clipRect());
    }
    return visible;
}

TEST_F(ScreenTest, TextAndButtonsFitIntoEveryWindow)
{
    for (int number = 0; number < 54; ++number) {
        const QSize size = windowSizes[number % 6];
        const double textScale = textScales[number / 6 % 3];
        const Screen screen = allScreens[number / 18];
        SCOPED_TRACE("screen " + std::to_string(int(screen)) + " at " + std::to_string(size.width()) + " x " +
                     std::to_string(size.height()) + " with text of " + std::to_string(textScale));
        appearance.set({.textScale = textScale});
        open(screen, size);
        for (QQuickItem* each : itemsBelow(window.contentItem())) {
            const auto* accessible = QAccessible::queryAccessibleInterface(each);
            const bool isButton = accessible != nullptr && accessible->role() == QAccessible::Button;
            EXPECT_GE(std::min(each->width(), each->height()), isButton ? 44 : 0)
                << qPrintable(each->objectName());
        }
        const QQuickItem* const button = item("welcome.getStarted");
        EXPECT_TRUE(button == nullptr || visibleArea(button) == area(button));
        const QQuickItem* const scroll = item("QQuickFlickable");
        const qreal end = scroll->mapToScene({0, scroll->property("contentHeight").toReal()}).y();
        std::vector<QRectF> texts;
        for (const QQuickItem* each : visibleTexts(window)) {
            expectWhole(each);
            EXPECT_TRUE(area(each).left() >= 0 && area(each).right() <= size.width());
            EXPECT_LE(area(each).bottom(), scroll->isAncestorOf(each) ? end : size.height());
            const QRectF visible = visibleArea(each);
            for (const QRectF& other : texts)
                EXPECT_FALSE(other.intersects(visible)) << qPrintable(each->property("text").toString());
            texts.push_back(visible);
        }
    }
}

TEST_F(ScreenTest, KeysScrollEveryScreenAndTheIndicatorFades)
{
    appearance.set({.textScale = 2});
    for (const Screen screen : allScreens) {
        SCOPED_TRACE(int(screen));
        open(screen, {320, 568});
        for (int count = 0; count < 8; ++count)
            animations.pass(250);
        const auto indicator = [&] { return item("scroll.indicator"); };
        EXPECT_EQ(indicator()->opacity(), 0) << "it was visible for a moment";
        QTest::keyClick(&window, Qt::Key_Shift); // Shows the focus ring.
        const QQuickItem* const scroll = item("QQuickFlickable");
        const auto position = [&] { return scroll->property("contentY").toReal(); };
        EXPECT_EQ(scroll->clip(), screen != Screen::dashboard) << "stays below the bar and above the button";
        const qreal viewHeight = scroll->height();
        const qreal end = scroll->property("contentHeight").toReal() - viewHeight;
        const auto bounded = [&](qreal wanted) { return std::clamp(wanted, 0.0, end); };
        const std::pair<Qt::Key, qreal> keys[] = {{Qt::Key_End, end},
                                                  {Qt::Key_PageUp, bounded(end - viewHeight + 44)},
                                                  {Qt::Key_Home, 0},
                                                  {Qt::Key_PageDown, bounded(viewHeight - 44)},
                                                  {Qt::Key_Home, 0}};
        for (const auto& [key, expected] : keys) {
            QTest::keyClick(&window, key);
            animations.pass(250);
            EXPECT_EQ(indicator()->opacity(), 1);
            EXPECT_NEAR(position(), expected, 1) << key;
            EXPECT_EQ(item("welcome.line") != nullptr, screen == Screen::welcome && position() < end - 1);
            const QRectF track = area(scroll).adjusted(0, 4, 0, -4);
            EXPECT_TRUE(key != Qt::Key_End || qAbs(area(indicator()).bottom() - track.bottom()) <= 1);
            if (const QQuickItem* text = item("welcome.text"); text != nullptr && key == Qt::Key_End) {
                EXPECT_NEAR(area(text).bottom(), area(scroll).bottom() - 16, 1);
            }
            EXPECT_TRUE(key != Qt::Key_Home || qAbs(area(indicator()).top() - track.top()) <= 1);
        }
        for (int count = 0; count < 2; ++count)
            QTest::keyClick(&window, Qt::Key_Down);
        animations.pass(250);
        // On the dashboard, the keys move between the cards.
        EXPECT_TRUE(screen == Screen::dashboard || qAbs(position() - bounded(88)) <= 1) << position();
        animations.pass(900);
        EXPECT_EQ(indicator()->opacity(), 1);
        animations.pass(250);
        EXPECT_EQ(indicator()->opacity(), 0);
    }
}

TEST_F(ScreenTest, KeysMoveBetweenButtonsAndTheFocusStaysVisible)
{
    const char* const buttons[] = {"dashboard.card.person.badge.key", "dashboard.card.tv.and.mediabox",
                                   "dashboard.card.bell.badge", "dashboard.openSettings"};
    using Move = std::tuple<double, Qt::Key, int, int>;
    const Move moves[] = {
        Move(1, Qt::Key_Right, 0, 1), Move(1, Qt::Key_Left, 1, 0),  Move(1, Qt::Key_Down, 0, 2),
        Move(1, Qt::Key_Up, 2, 0),    Move(1, Qt::Key_Left, 2, 2),  Move(1, Qt::Key_Right, 1, 1),
        Move(1, Qt::Key_Down, 1, 1),  Move(2, Qt::Key_Down, 0, 1),  Move(2, Qt::Key_Down, 1, 2),
        Move(2, Qt::Key_Up, 2, 1),    Move(2, Qt::Key_Right, 0, 0), Move(1, Qt::Key_Tab, 0, 1),
        Move(1, Qt::Key_Tab, 1, 2),   Move(1, Qt::Key_Tab, 2, 3),   Move(1, Qt::Key_Tab, 3, 0)};
    for (int number = 0; number < 2 * int(std::size(moves)); ++number) {
        const auto& [textScale, keyFromLeft, from, to] = moves[number / 2];
        const bool isMirrored = number % 2 == 1;
        const bool isHorizontal = keyFromLeft == Qt::Key_Left || keyFromLeft == Qt::Key_Right;
        const Qt::Key mirroredKey = keyFromLeft == Qt::Key_Left ? Qt::Key_Right : Qt::Key_Left;
        const Qt::Key key = isMirrored && isHorizontal ? mirroredKey : keyFromLeft;
        QGuiApplication::setLayoutDirection(isMirrored ? Qt::RightToLeft : Qt::LeftToRight);
        SCOPED_TRACE(std::string(buttons[from]) + " key " + std::to_string(key));
        appearance.set({.textScale = textScale});
        open(Screen::dashboard, {320, 568});
        QTest::mouseClick(&window, Qt::LeftButton, {}, {2, 2}); // Hides the focus ring.
        item(buttons[from])->forceActiveFocus();
        QTest::keyClick(&window, key);
        settle();
        EXPECT_TRUE(item(buttons[to])->hasActiveFocus());
        EXPECT_GE(visibleArea(item("focusRing")).height(), std::min(item("focusRing")->height(), 300.0));
    }
    QGuiApplication::setLayoutDirection(Qt::LeftToRight);
}

TEST_F(ScreenTest, FocusScrollsIntoViewOnlyForTheKeyboard)
{
    appearance.set({.textScale = 2});
    open(Screen::dashboard, {320, 300}); // Smaller than a card.
    QTest::mouseClick(&window, Qt::LeftButton, {}, {2, 2});
    QQuickItem* const card = item("dashboard.card.bell.badge");
    EXPECT_EQ(area(item("badge", card)).translated(-area(card).topLeft()), QRectF(80, 20, 120, 120))
        << "the card grows with its text and keeps its padding";
    EXPECT_GT(area(item("dashboard.openSettings")).top(), area(item("Notifications are off")).bottom());
    const QRectF before = area(card);
    card->forceActiveFocus();
    settle();
    EXPECT_EQ(area(card), before);
    QTest::keyClick(&window, Qt::Key_Shift);
    settle();
    EXPECT_EQ(area(card).top(), 16) << "its beginning is visible, with room for the focus ring";
}
