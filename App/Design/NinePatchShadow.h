#pragma once

#include <QColor>
#include <QImage>
#include <QPointF>
#include <QQuickItem>

#include <vector>

namespace App::Design {

/// The soft shadow of a rounded rectangle as large as the item, cast around it and shifted by `offset`.
///
/// Nine patches of one small picture are drawn, so a resize costs nothing; pictures are shared by all shadows
/// that look the same. Lengths are in points; the Gaussian of a blur radius has half of it as its standard
/// deviation.
///
/// Threads: as for every item; the pictures are made on the main thread.
class NinePatchShadow : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(qreal cornerRadius MEMBER m_cornerRadius NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(qreal blurRadius MEMBER m_blurRadius NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(QColor color MEMBER m_color NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(QPointF offset MEMBER m_offset NOTIFY appearanceChanged FINAL)

public:
    explicit NinePatchShadow(QQuickItem* parent = nullptr);

Q_SIGNALS:
    void appearanceChanged();

protected:
    void updatePolish() override;
    QSGNode* updatePaintNode(QSGNode* oldNode, UpdatePaintNodeData* data) override;
    void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;
    void itemChange(ItemChange change, const ItemChangeData& data) override;

private:
    /// One part of an axis: where it is in the picture, in pixels, and where on the item, in points.
    struct Span {
        qreal sourceStart, sourceLength;
        qreal targetStart, targetLength;
    };
    /// An axis of the shadow: the length of the shape in the picture, in pixels, and the parts to be drawn.
    struct Axis {
        int shapeLength;
        std::vector<Span> spans;
    };

    [[nodiscard]] Axis axis(qreal length, qreal offset) const;
    [[nodiscard]] qreal cornerPixels() const;
    [[nodiscard]] int reachPixels() const;
    [[nodiscard]] qreal devicePixelRatio() const;

    qreal m_cornerRadius = 0;
    qreal m_blurRadius = 0;
    QColor m_color = Qt::transparent;
    QPointF m_offset;
    QImage m_picture;
};

} // namespace App::Design
