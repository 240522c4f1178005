#pragma once

#include <QColor>
#include <QImage>
#include <QObject>
#include <QQmlEngine>
#include <QString>
#include <QUrl>

namespace App::Design {

/// Renders an SVG file of the app's assets at `pixels` by `pixels`, plus an empty margin of `margin` pixels
/// on each side. Lengths are in device pixels. Returns a null image if the file does not exist.
QImage drawing(const QString& name, int pixels, int margin = 0);

/// Returns the image URLs of the logo, for `Logo.qml`. Lengths are in device pixels.
///
/// The first use in an engine adds the image provider `image://artwork/`.
///
/// Threads: main. Errors: for an unknown picture, the QML `Image` logs a warning.
class Artwork : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    static Artwork* create(QQmlEngine* engine, QJSEngine* scriptEngine);

    Q_INVOKABLE static QUrl logo(int pixels);
    /// The logo's shape in one color, blurred, with a margin of `logoShadowMargin()` on each side.
    Q_INVOKABLE static QUrl logoShadow(int pixels, int blurPixels, const QColor& color);
    Q_INVOKABLE static int logoShadowMargin(int blurPixels) { return blurPixels * 3 / 2; }

private:
    Artwork() = default;
};

} // namespace App::Design
