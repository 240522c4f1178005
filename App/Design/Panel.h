#pragma once

#include "App/Design/PatchedItem.h"

#include <QColor>

class QBrush;
class QPainter;

namespace App::Design {

/// A rounded rectangle with a solid color or a gradient, and a border inside its edge. Unlike Qt's
/// `Rectangle`, it looks the same on every renderer.
///
/// Lengths are in points. A radius larger than half of the shorter side draws a capsule. Position it at
/// whole points.
class Panel : public App::Design::PatchedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(qreal radius MEMBER m_radius NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(QColor color MEMBER m_color NOTIFY appearanceChanged FINAL)
    /// Color at the bottom or right end of the gradient; no gradient if unset.
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
