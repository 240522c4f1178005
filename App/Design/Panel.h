#pragma once

#include "App/Design/PatchedItem.h"

#include <QColor>

class QBrush;
class QPainter;

namespace App::Design {

/// A rounded rectangle with a colour or a gradient of two, and a border that lies inside and is as wide as it
/// says, which the items of the toolkit do not draw alike on every renderer.
///
/// Lengths are in points. A radius beyond half of the shorter side makes a circle or a capsule. Keep its
/// position whole.
class Panel : public App::Design::PatchedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(qreal radius MEMBER m_radius NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(QColor color MEMBER m_color NOTIFY appearanceChanged FINAL)
    /// Where the gradient from `color` ends: at the bottom or to the right. Without it there is no gradient.
    Q_PROPERTY(QColor endColor MEMBER m_endColor NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(GradientDirection gradientDirection MEMBER m_gradientDirection NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(qreal borderWidth MEMBER m_borderWidth NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(QColor borderColor MEMBER m_borderColor NOTIFY appearanceChanged FINAL)

public:
    enum class GradientDirection { Vertical, Horizontal };
    Q_ENUM(GradientDirection)

protected:
    [[nodiscard]] Patches makePatches() const override;

private:
    /// Lengths are in points.
    void paint(QPainter& painter, const QRectF& area, qreal radius) const;
    [[nodiscard]] QBrush brush(const QRectF& area) const;
    [[nodiscard]] bool hasGradient(GradientDirection direction) const
    {
        return m_endColor.isValid() && m_gradientDirection == direction;
    }

    qreal m_radius = 0;
    QColor m_color = Qt::transparent;
    QColor m_endColor;
    GradientDirection m_gradientDirection = GradientDirection::Vertical;
    qreal m_borderWidth = 0;
    QColor m_borderColor = Qt::transparent;
};

} // namespace App::Design
