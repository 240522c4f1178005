#include "App/Design/Artwork.h"

#include "App/Design/Raster.h"

#include <QFile>
#include <QImage>
#include <QPainter>
#include <QQuickImageProvider>
#include <QSvgRenderer>

namespace App::Design {

namespace {

constexpr auto providerId = "artwork";

QUrl pictureURL(const QStringList& path)
{
    return {QStringLiteral("image://%1/%2").arg(QLatin1String(providerId), path.join(u'/'))};
}

QString hexadecimal(const QColor& color)
{
    return QString::number(color.rgba(), 16);
}

QColor colorFrom(const QString& hexadecimal)
{
    return QColor::fromRgba(hexadecimal.toUInt(nullptr, 16));
}

/// Null when there is no such file.
QImage drawing(const QString& name, int pixels, int margin = 0)
{
    const QString path = QStringLiteral(":/Quorvane/Assets/%1.svg").arg(name);
    if (pixels <= 0 || !QFile::exists(path))
        return {};
    QImage image(pixels + 2 * margin, pixels + 2 * margin, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    QSvgRenderer(path).render(&painter, QRectF(margin, margin, pixels, pixels));
    return image;
}

/// In the file of a symbol black draws and white erases what was drawn before, which is how a badge gets its
/// gap. So the coverage is what is there less what is white of it.
QImage symbolMask(const QImage& drawing)
{
    QImage mask(drawing.size(), QImage::Format_Alpha8);
    for (int y = 0; y < drawing.height(); ++y) {
        const auto* pixel = reinterpret_cast<const QRgb*>(drawing.constScanLine(y));
        uchar* coverage = mask.scanLine(y);
        for (int x = 0; x < drawing.width(); ++x)
            coverage[x] = static_cast<uchar>(qAlpha(pixel[x]) - qRed(pixel[x]));
    }
    return mask;
}

QImage symbol(const QString& name, int pixels, const QColor& color)
{
    const QImage image = drawing(QStringLiteral("symbols/") + name, pixels);
    return image.isNull() ? image : tinted(symbolMask(image), color);
}

QImage logoShadow(int pixels, int blurPixels, const QColor& color)
{
    const QImage image = drawing(QStringLiteral("QvLogo"), pixels, Artwork::logoShadowMargin(blurPixels));
    return tinted(blurred(image.convertToFormat(QImage::Format_Alpha8), blurPixels / 2.0), color);
}

class ArtworkProvider final : public QQuickImageProvider {
public:
    ArtworkProvider() : QQuickImageProvider(Image) {}

    QImage requestImage(const QString& id, QSize* size, const QSize& /*requestedSize*/) override
    {
        QImage image = picture(id.split(u'/'));
        *size = image.size();
        return image;
    }

private:
    /// Undoes `pictureURL`.
    static QImage picture(const QStringList& path)
    {
        const auto number = [&](qsizetype index) { return path.value(index).toInt(); };
        if (path.first() == u"symbol")
            return symbol(path.value(1), number(2), colorFrom(path.value(3)));
        if (path.first() == u"logo")
            return drawing(QStringLiteral("QvLogo"), number(1));
        return logoShadow(number(1), number(2), colorFrom(path.value(3)));
    }
};

} // namespace

Artwork* Artwork::create(QQmlEngine* engine, QJSEngine* /*scriptEngine*/)
{
    engine->addImageProvider(QLatin1String(providerId), new ArtworkProvider);
    return new Artwork;
}

QUrl Artwork::symbol(const QString& name, int pixels, const QColor& color)
{
    if (name.isEmpty() || pixels <= 0)
        return {};
    return pictureURL({QStringLiteral("symbol"), name, QString::number(pixels), hexadecimal(color)});
}

QUrl Artwork::logo(int pixels)
{
    if (pixels <= 0)
        return {};
    return pictureURL({QStringLiteral("logo"), QString::number(pixels)});
}

QUrl Artwork::logoShadow(int pixels, int blurPixels, const QColor& color)
{
    if (pixels <= 0 || color.alpha() == 0)
        return {};
    return pictureURL({QStringLiteral("logo-shadow"), QString::number(pixels), QString::number(blurPixels),
                       hexadecimal(color)});
}

} // namespace App::Design
