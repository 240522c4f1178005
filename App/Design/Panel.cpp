#include "App/Design/Panel.h"

#include <QLinearGradient>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace App::Design {

PatchedItem::Patches Panel::makePatches() const
{
    const qreal scale = devicePixelRatio();
    const qreal radius = std::clamp(m_radius, 0.0, std::min(width(), height()) / 2);
    // One pixel more than the corner, so that its antialiased edge is not stretched.
    const int end = static_cast<int>(std::ceil(std::max(radius, m_borderWidth) * scale)) + 1;
    const auto axis = [&](qreal length, bool hasGradient) {
        return hasGradient ? PatchAxis::whole(0, length, scale) : PatchAxis::stretched(end, 0, length, scale);
    };
    Patches patches{.columns = axis(width(), hasGradient(GradientDirection::Horizontal)),
                    .rows = axis(height(), hasGradient(GradientDirection::Vertical))};
    const QSize size(patches.columns.pictureLength, patches.rows.pictureLength);
    if (size.isEmpty())
        return {};
    patches.picture = QImage(size, QImage::Format_ARGB32_Premultiplied);
    patches.picture.fill(Qt::transparent);
    QPainter painter(&patches.picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(scale, scale);
    paint(painter, {QPointF(), QSizeF(size) / scale}, radius);
    return patches;
}

void Panel::paint(QPainter& painter, const QRectF& area, qreal radius) const
{
    painter.setPen(Qt::NoPen);
    painter.setBrush(brush(area));
    painter.drawRoundedRect(area, radius, radius);
    if (m_borderWidth <= 0)
        return;
    const qreal inset = m_borderWidth / 2;
    const qreal lineRadius = std::max(radius - inset, 0.0);
    painter.setPen(QPen(m_borderColor, m_borderWidth, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(area.adjusted(inset, inset, -inset, -inset), lineRadius, lineRadius);
}

QBrush Panel::brush(const QRectF& area) const
{
    if (!m_endColor.isValid())
        return m_color;
    QLinearGradient gradient(area.topLeft(), m_gradientDirection == GradientDirection::Vertical
                                                 ? area.bottomLeft()
                                                 : area.topRight());
    gradient.setColorAt(0, m_color);
    gradient.setColorAt(1, m_endColor);
    return gradient;
}

} // namespace App::Design
