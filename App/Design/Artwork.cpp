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
    /// Parses a path built by `pictureURL`.
    static QImage picture(const QStringList& path)
    {
        const auto number = [&](qsizetype index) { return path.value(index).toInt(); };
        if (path.first() == u"logo")
            return drawing(QStringLiteral("QvLogo"), number(1));
        return logoShadow(number(1), number(2), colorFrom(path.value(3)));
    }
};

} // namespace

QImage drawing(const QString& name, int pixels, int margin)
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

Artwork* Artwork::create(QQmlEngine* engine, QJSEngine* /*scriptEngine*/)
{
    engine->addImageProvider(QLatin1String(providerId), new ArtworkProvider);
    return new Artwork;
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
