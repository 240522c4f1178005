#include "App/Design/SymbolPicture.h"

#include "App/Design/Artwork.h"
#include "App/Design/Raster.h"

#include <QCache>
#include <QQmlInfo>

namespace App::Design {

namespace {

/// In a symbol's file, black draws and white erases, for example the gap around a badge. The coverage is
/// therefore the alpha minus the white.
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

/// Returns a null image if the symbol does not exist.
QImage picture(const QString& name, int pixels, const QColor& color)
{
    constexpr int cachedKibibytes = 1024;
    static QCache<QString, QImage> cache(cachedKibibytes);
    const QString look = QStringLiteral("%1/%2/%3").arg(name).arg(pixels).arg(color.rgba(), 0, 16);
    if (const QImage* known = cache.object(look))
        return *known;
    QImage drawn = drawing(QStringLiteral("symbols/") + name, pixels);
    if (drawn.isNull())
        return drawn;
    drawn = tinted(symbolMask(drawn), color);
    cache.insert(look, new QImage(drawn), static_cast<int>(drawn.sizeInBytes() / 1024));
    return drawn;
}

} // namespace

PatchedItem::Patches SymbolPicture::makePatches() const
{
    const qreal scale = devicePixelRatio();
    Patches patches{.columns = PatchAxis::whole(0, width(), scale),
                    .rows = PatchAxis::whole(0, height(), scale)};
    patches.picture = picture(m_name, patches.columns.pictureLength, m_color);
    if (patches.picture.isNull() && !m_name.isEmpty())
        qmlWarning(this) << "unknown symbol " << m_name;
    if (m_isRightToLeft && (m_name.startsWith(u"arrow.") || m_name.startsWith(u"chevron.")))
        patches.picture = patches.picture.mirrored(true, false);
    return patches;
}

} // namespace App::Design
