#include "Tests/App/ScreenTest.h"

/// Text on orange and orange text have a given color, except with high contrast.
TEST_F(ScreenTest, TextAndFocusRingHaveEnoughContrast)
{
    for (int number = 0; number < 12; ++number) {
        const Screen screen = allScreens[number % 3];
        const bool isDark = number / 3 % 2 == 1;
        const bool isContrastHigh = number / 6 == 1;
        SCOPED_TRACE(number);
        open(screen);
        appearance.set({.isDark = isDark});
        appearance.set({.isDark = isDark, .isContrastHigh = isContrastHigh}); // Changes the contrast alone.
        QTest::keyClick(&window, Qt::Key_Shift);                              // Shows the focus ring.
        settle();
        const QColor page = isDark && screen != Screen::welcome ? Qt::black : Qt::white;
        const QStringList onOrangeOrOrange{"Get Started", "Tap to view details"};
        expectContrast(window, 4.5, isContrastHigh ? QStringList() : onOrangeOrOrange);
        const QQuickItem* const ring = item("focusRing");
        ASSERT_NE(ring, nullptr);
        EXPECT_TRUE(QRectF(QPointF(), window.size()).contains(area(ring)));
        const auto outer = ring->property("borderColor").value<QColor>();
        const auto inner = ring->property("innerColor").value<QColor>();
        EXPECT_GE(contrast(outer, page), 3);
        for (const QColor& adjacent : {page, QColor("#ff9500"), QColor("#ff9f0a"), QColor("#ffaa33")})
            EXPECT_GE(std::max(contrast(outer, adjacent), contrast(inner, adjacent)), 3);
    }
}
