#include "App/Design/Panel.h"

#include "App/Design/Raster.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace App::Design {

PatchedItem::Patches Panel::makePatches() const
{
    const qreal scale = devicePixelRatio();
    const qreal radius = std::clamp(m_radius, 0.0, std::min(width(), height()) / 2);
    // A pixel more than the corner, or its smoothed edge would be stretched.
    const int end = static_cast<int>(std::ceil(std::max(radius, m_borderWidth) * scale)) + 1;
    const auto axis = [&](qreal length, bool hasGradient) {
        return hasGradient ? PatchAxis::whole(0, length, scale) : PatchAxis::stretched(end, 0, length, scale);
    };
    Patches patches{.columns = axis(width(), hasGradient(GradientDirection::Horizontal)),
                    .rows = axis(height(), hasGradient(GradientDirection::Vertical))};
    const QSize size(patches.columns.pictureLength, patches.rows.pictureLength);
    if (!size.isEmpty())
        patches.picture = picture(size, radius * scale, m_borderWidth * scale);
    return patches;
}

QImage Panel::picture(const QSize& size, qreal radius, qreal borderWidth) const
{
    const QRectF area = QRect({}, size);
    const QImage shape = roundedRectangle(size, area, radius);
    const auto direction =
        m_gradientDirection == GradientDirection::Horizontal ? Qt::Horizontal : Qt::Vertical;
    QImage picture =
        m_endColor.isValid() ? tinted(shape, m_color, m_endColor, direction) : tinted(shape, m_color);
    if (borderWidth > 0) {
        const QImage inside =
            roundedRectangle(size, area.adjusted(borderWidth, borderWidth, -borderWidth, -borderWidth),
                             std::max(radius - borderWidth, 0.0));
        QPainter(&picture).drawImage(0, 0, tinted(without(shape, inside), m_borderColor));
    }
    return picture;
}

} // namespace App::Design
