#include "Tests/App/ScreenTest.h"

#include <cmath>

/// WCAG 2.1, "relative luminance".
static double luminance(const QColor& color)
{
    const auto linear = [](double value) {
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

static double contrast(const QColor& one, const QColor& other)
{
    const auto [dark, light] = std::minmax({luminance(one), luminance(other)});
    return (light + 0.05) / (dark + 0.05);
}

static QColor over(const QColor& color, const QColor& background)
{
    const auto mix = [&](float above, float below) {
        return above * color.alphaF() + below * (1 - color.alphaF());
    };
    return QColor::fromRgbF(mix(color.redF(), background.redF()), mix(color.greenF(), background.greenF()),
                            mix(color.blueF(), background.blueF()));
}

/// Text on orange and orange text have a given color, except with high contrast.
TEST_F(ScreenTest, TextHasEnoughContrast)
{
    for (const bool isContrastHigh : {false, true}) {
        for (const bool isDark : {false, true}) {
            for (const int screen : {0, 1, 2}) {
                SCOPED_TRACE(std::to_string(screen) + (isDark ? " dark" : "") +
                             (isContrastHigh ? " high" : ""));
                open(screen > 0);
                if (screen == 2)
                    content->dashboard()->tapCard(Card::Sso);
                appearance.set({.isDark = isDark, .isContrastHigh = isContrastHigh});
                settle();
                const QColor page = isDark && screen > 0 ? Qt::black : Qt::white;
                for (const QQuickItem* text : itemsBelow(window.contentItem())) {
                    if (!text->inherits("QQuickText") || !text->isVisible())
                        continue;
                    const QString words = text->property("text").toString();
                    const auto color = text->property("color").value<QColor>();
                    const QQuickItem* const strip = item("dashboard.warning");
                    QColor background = page;
                    if (strip != nullptr && strip->isAncestorOf(text))
                        background = over(strip->property("color").value<QColor>(), page);
                    const bool isOnOrange = words == "Get Started";
                    if (isOnOrange)
                        background = item("welcome.button")->property("color").value<QColor>();
                    if (isContrastHigh || (!isOnOrange && words != "Tap to view details")) {
                        EXPECT_GE(contrast(over(color, background), background), 4.5) << qPrintable(words);
                    }
                }
            }
        }
    }
}

TEST_F(ScreenTest, FocusRingIsVisibleNextToEveryColorAndInsideTheWindow)
{
    for (const bool isDark : {false, true}) {
        for (const int screen : {0, 1, 2}) {
            SCOPED_TRACE(std::to_string(screen) + (isDark ? " dark" : ""));
            appearance.set({.isDark = isDark});
            open(screen > 0);
            if (screen == 2)
                content->dashboard()->tapCard(Card::Sso);
            settle();
            QTest::keyClick(&window, Qt::Key_Shift);
            settle();
            const QQuickItem* const ring = item("focusRing");
            ASSERT_NE(ring, nullptr);
            EXPECT_TRUE(QRectF(QPointF(), window.size()).contains(area(ring)));
            const auto outer = ring->property("borderColor").value<QColor>();
            const auto inner = ring->property("innerColor").value<QColor>();
            const QColor page = isDark && screen > 0 ? Qt::black : Qt::white;
            EXPECT_GE(contrast(outer, page), 3);
            for (const QColor& adjacent : {page, QColor("#ff9500"), QColor("#ff9f0a"), QColor("#ffaa33")})
                EXPECT_GE(std::max(contrast(outer, adjacent), contrast(inner, adjacent)), 3);
        }
    }
}
