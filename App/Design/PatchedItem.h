#pragma once

#include <QImage>
#include <QQmlEngine>
#include <QQuickItem>

#include <vector>

namespace App::Design {

/// One axis of a picture whose middle is stretched.
struct PatchAxis {
    /// One part of it: where it is in the picture, in pixels, and where on the item, in points.
    struct Span {
        qreal sourceStart, sourceLength;
        qreal targetStart, targetLength;
    };

    /// In pixels.
    int pictureLength = 0;
    std::vector<Span> spans;

    /// Keeps `end` pixels at both ends as they are and lets one stand for all that is between them; an axis
    /// without room for that is kept whole. `start` and `length` are in points.
    static PatchAxis stretched(int end, qreal start, qreal length, qreal scale);
    static PatchAxis whole(qreal start, qreal length, qreal scale);
};

/// An item that shows a small picture in up to nine patches, so that it takes the memory of its corners,
/// however large it is. As long as no scale changes its size on screen, it looks the same without `smooth`
/// and is drawn in a fraction of the time.
///
/// Threads: as for every item; `makePatches` runs on the main thread.
class PatchedItem : public QQuickItem {
    Q_OBJECT
    QML_ANONYMOUS

public:
    explicit PatchedItem(QQuickItem* parent = nullptr);

Q_SIGNALS:
    /// To be emitted when another picture is needed.
    void appearanceChanged();

protected:
    struct Patches {
        PatchAxis columns;
        PatchAxis rows;
        /// As large as the axes say.
        QImage picture = {};
    };

    /// Called before the item is drawn for the first time, and when it, its scale or its size has changed.
    /// Without a picture, nothing is drawn. The item has a size.
    [[nodiscard]] virtual Patches makePatches() const = 0;

    /// Pixels to a point.
    [[nodiscard]] qreal devicePixelRatio() const;

    void updatePolish() override;
    QSGNode* updatePaintNode(QSGNode* oldNode, UpdatePaintNodeData* data) override;
    void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;
    void itemChange(ItemChange change, const ItemChangeData& data) override;

private:
    Patches m_patches;
};

} // namespace App::Design
