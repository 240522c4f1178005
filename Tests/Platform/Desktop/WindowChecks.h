#pragma once

#include <QAccessible>
#include <QFontMetricsF>
#include <QPainter>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRegularExpression>
#include <QTest>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

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

/// Lists the role and name of the accessible items below `parent` in their order, without those that are
/// hidden.
inline std::string spoken(QAccessibleInterface* parent)
{
    std::string list;
    for (int index = 0; index < parent->childCount(); ++index) {
        QAccessibleInterface* const child = parent->child(index);
        EXPECT_EQ(child->parent(), parent);
        EXPECT_EQ(parent->indexOfChild(child), index);
        EXPECT_EQ(child->state().modal, child->role() == QAccessible::Dialog);
        if (child->state().invisible)
            continue;
        list += qAccessibleRoleString(child->role());
        list += " " + child->text(QAccessible::Name).left(20).toStdString();
        if (const QString description = child->text(QAccessible::Description); !description.isEmpty())
            list += ": " + description.left(10).toStdString();
        list += "\n" + spoken(child);
    }
    return list;
}

/// WCAG 2.1, "contrast ratio" and "relative luminance".
inline double contrast(const QColor& one, const QColor& other)
{
    const auto linear = [](double value) {
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    const auto luminance = [&](const QColor& color) {
        return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
               0.0722 * linear(color.blueF());
    };
    const auto [dark, light] = std::minmax({luminance(one), luminance(other)});
    return (light + 0.05) / (dark + 0.05);
}

/// Checks the contrast between each visible text and the pixel to its left. `exceptions` need none.
inline void expectContrast(QQuickWindow& window, double minimum, const QStringList& exceptions = {})
{
    const QImage shown = window.grabWindow();
    const qreal scale = static_cast<qreal>(shown.width()) / window.width();
    for (const QQuickItem* text : visibleTexts(window)) {
        const QPointF left = text->mapToScene({text->property("leftPadding").toReal() - 1, 1});
        const QColor background = shown.pixelColor((left * scale).toPoint());
        QImage blended(1, 1, QImage::Format_RGB32);
        blended.fill(background);
        QPainter(&blended).fillRect(0, 0, 1, 1, text->property("color").value<QColor>());
        const double found = contrast(blended.pixelColor(0, 0), background);
        const QString words = text->property("text").toString();
        EXPECT_TRUE(found >= minimum || exceptions.contains(words)) << qPrintable(words) << found;
    }
}
