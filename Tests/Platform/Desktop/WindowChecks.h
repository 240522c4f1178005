#pragma once

#include <QFontMetricsF>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRegularExpression>
#include <QTest>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

/// Waits until the condition holds; long enough for a slow machine.
inline bool waitFor(const std::function<bool()>& condition)
{
    constexpr int milliseconds = 20'000;
    return QTest::qWaitFor(condition, milliseconds);
}

inline QList<QQuickItem*> itemsBelow(const QQuickItem* parent)
{
    QList<QQuickItem*> items = parent->childItems();
    for (const QQuickItem* child : parent->childItems())
        items += itemsBelow(child);
    return items;
}

inline QList<QQuickItem*> visibleTexts(const QQuickWindow& window)
{
    QList<QQuickItem*> texts = itemsBelow(window.contentItem());
    texts.removeIf([](auto* each) { return !each->inherits("QQuickText") || !each->isVisible(); });
    return texts;
}

/// Checks that the text is plain, that no part of it is cut off and that no word is broken.
inline void expectWhole(const QQuickItem* text)
{
    const QString words = text->property("text").toString();
    SCOPED_TRACE(words.toStdString());
    EXPECT_FALSE(text->property("truncated").toBool());
    EXPECT_EQ(text->property("textFormat").toInt(), int(Qt::PlainText));
    EXPECT_LE(text->property("contentWidth").toReal(), text->width() + 0.5);
    if (words.front().unicode() >= 0x3000)
        return; // Japanese has no spaces and breaks between most characters.
    const QFontMetricsF metrics(text->property("font").value<QFont>());
    const qreal room = text->width() - text->property("leftPadding").toReal() * 2;
    for (const QString& word : words.split(QRegularExpression("[ -]")))
        EXPECT_LE(metrics.horizontalAdvance(word), room + 0.5) << qPrintable(word);
}

/// WCAG 2.1, "relative luminance".
inline double luminance(const QColor& color)
{
    const auto linear = [](double value) {
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

inline double contrast(const QColor& one, const QColor& other)
{
    const auto [dark, light] = std::minmax({luminance(one), luminance(other)});
    return (light + 0.05) / (dark + 0.05);
}
