#include "App/Design/Panel.h"

#include <QLinearGradient>
#include <QPainter>

#include <algorithm>

namespace App::Design {

Panel::Panel(QQuickItem* parent) : QQuickPaintedItem(parent)
{
    setAntialiasing(true);
    connect(this, &Panel::appearanceChanged, this, [this] { update(); });
    // What is not seen is not painted, and keeps no picture.
    connect(this, &QQuickItem::visibleChanged, this, [this] {
        setFlag(ItemHasContents, isVisible());
        update();
    });
}

void Panel::paint(QPainter* painter)
{
    // As large as the texture: a painted item has one of whole points.
    const QRectF area(0, 0, qRound(width()), qRound(height()));
    const qreal radius = std::clamp(m_radius, 0.0, std::min(area.width(), area.height()) / 2);
    painter->setPen(Qt::NoPen);
    painter->setBrush(brush(area));
    painter->drawRoundedRect(area, radius, radius);
    if (m_borderWidth <= 0)
        return;
    const qreal inset = m_borderWidth / 2;
    const qreal lineRadius = std::max(radius - inset, 0.0);
    painter->setPen(QPen(m_borderColor, m_borderWidth, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(area.adjusted(inset, inset, -inset, -inset), lineRadius, lineRadius);
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
