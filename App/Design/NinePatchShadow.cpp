#include "App/Design/NinePatchShadow.h"

#include "App/Design/Raster.h"

#include <QCache>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace App::Design {

namespace {

/// Cache key of a shadow's picture; lengths in pixels.
struct Look {
    QSize picture;
    int reach;
    qreal cornerRadius;
    qreal sigma;
    QRgb color;

    friend bool operator==(const Look& left, const Look& right)
    {
        return left.picture == right.picture && left.reach == right.reach &&
               left.cornerRadius == right.cornerRadius && left.sigma == right.sigma &&
               left.color == right.color;
    }
    friend size_t qHash(const Look& look, size_t seed = 0)
    {
        return qHashMulti(seed, look.picture.width(), look.picture.height(), look.reach, look.cornerRadius,
                          look.sigma, look.color);
    }
};

QImage draw(const Look& look)
{
    QImage mask(look.picture, QImage::Format_Alpha8);
    mask.fill(0);
    QPainter painter(&mask);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::black);
    painter.drawRoundedRect(mask.rect().adjusted(look.reach, look.reach, -look.reach, -look.reach),
                            look.cornerRadius, look.cornerRadius);
    painter.end();
    return tinted(blurred(mask, look.sigma), QColor::fromRgba(look.color));
}

QImage picture(const Look& look)
{
    constexpr int cachedKibibytes = 4096;
    static QCache<Look, QImage> cache(cachedKibibytes);
    if (const QImage* known = cache.object(look))
        return *known;
    QImage drawn = draw(look);
    cache.insert(look, new QImage(drawn), static_cast<int>(drawn.sizeInBytes() / 1024));
    return drawn;
}

} // namespace

PatchedItem::Patches NinePatchShadow::makePatches() const
{
    if (m_color.alpha() == 0)
        return {};
    const qreal scale = devicePixelRatio();
    // The shadow is visible up to three standard deviations beyond the shape.
    const int reach = static_cast<int>(std::ceil(1.5 * m_blurRadius * scale));
    // Larger radii are clamped to a half circle.
    const qreal corner = std::clamp(m_cornerRadius, 0.0, std::min(width(), height()) / 2) * scale;
    // Beyond this distance, a corner does not affect the shadow.
    const int end = static_cast<int>(std::ceil(corner)) + 2 * reach;
    const auto axis = [&](qreal offset, qreal length) {
        return PatchAxis::stretched(end, offset - reach / scale, length + 2 * reach / scale, scale);
    };
    Patches patches{.columns = axis(m_offset.x(), width()), .rows = axis(m_offset.y(), height())};
    patches.picture = picture({
        .picture = {patches.columns.pictureLength, patches.rows.pictureLength},
        .reach = reach,
        .cornerRadius = corner,
        .sigma = m_blurRadius * scale / 2,
        .color = m_color.rgba(),
    });
    return patches;
}

} // namespace App::Design
