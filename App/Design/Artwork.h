#pragma once

#include <QColor>
#include <QImage>
#include <QObject>
#include <QQmlEngine>
#include <QString>
#include <QUrl>

namespace App::Design {

/// One of our own SVG files at just this size, in pixels of the device, with an empty margin around it. Null
/// when there is no such file.
QImage drawing(const QString& name, int pixels, int margin = 0);

/// Names the pictures of the logo in an engine, in pixels of the device. For `Logo`; screens use that.
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

    Q_INVOKABLE static QUrl logo(int pixels);
    /// The logo's shape in one colour and blurred, with a margin of `logoShadowMargin` on each side.
    Q_INVOKABLE static QUrl logoShadow(int pixels, int blurPixels, const QColor& color);
    Q_INVOKABLE static int logoShadowMargin(int blurPixels) { return blurPixels * 3 / 2; }

private:
    Artwork() = default;
};

} // namespace App::Design
