#pragma once

#include <QColor>
#include <QObject>
#include <QQmlEngine>
#include <QString>
#include <QUrl>

namespace App::Design {

/// Names the pictures of an engine that are drawn from our own SVG files at just the size asked for, in
/// pixels of the device. For `Symbol` and `Logo`; screens use those.
///
/// Its first use adds the provider of `image://artwork/` to the engine, so nobody has to.
///
/// Threads: main. Errors: a picture there is none of is a warning of the image that asks for it, with the
/// name.
class Artwork : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    static Artwork* create(QQmlEngine* engine, QJSEngine* scriptEngine);

    Q_INVOKABLE static QUrl symbol(const QString& name, int pixels, const QColor& color);
    Q_INVOKABLE static QUrl logo(int pixels);
    /// The logo's shape in one colour and blurred, with a margin of `logoShadowMargin` on each side.
    Q_INVOKABLE static QUrl logoShadow(int pixels, int blurPixels, const QColor& color);
    Q_INVOKABLE static int logoShadowMargin(int blurPixels) { return blurPixels * 3 / 2; }

private:
    Artwork() = default;
};

} // namespace App::Design
