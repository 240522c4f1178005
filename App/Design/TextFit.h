#pragma once

#include <QFont>
#include <QObject>
#include <QQmlEngine>
#include <QSizeF>
#include <QString>

namespace App::Design {

/// Fits text into a width. Lengths are in points. A word ends where a line may be broken: at a space, after a
/// hyphen, and between most characters of Japanese. Threads: main.
class TextFit : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    using QObject::QObject;

    /// Returns `font`, made smaller if a word of `text` is wider than `width`.
    Q_INVOKABLE static QFont wholeWords(const QString& text, const QFont& font, qreal width);
    /// Returns `font`, made up to `minimumScale` smaller if `text` is wider than `width`, and even smaller if
    /// one of its words is.
    Q_INVOKABLE static QFont oneLine(const QString& text, const QFont& font, qreal width, qreal minimumScale);
    /// Returns `font`, made up to `minimumScale` smaller if wrapped `text` is higher than `size`, and even
    /// smaller if one of its words is wider.
    Q_INVOKABLE static QFont inBox(const QString& text, const QFont& font, const QSizeF& size,
                                   qreal minimumScale);
    /// Returns the smallest width, rounded up, in which wrapped `text` has as many lines as in `width`. Its
    /// lines then have about the same length.
    Q_INVOKABLE static qreal balancedWidth(const QString& text, const QFont& font, qreal width);
};

} // namespace App::Design
