#pragma once

#include <QImage>
#include <QQmlEngine>
#include <QQuickItem>

#include <vector>

namespace App::Design {

/// One axis of a picture whose middle can be stretched.
struct PatchAxis {
    /// A part of the axis: its range in the picture in pixels, and on the item in points.
    struct Span {
        qreal sourceStart, sourceLength;
        qreal targetStart, targetLength;
    };

    /// In pixels.
    int pictureLength = 0;
    std::vector<Span> spans;

    /// Returns an axis that stretches only the pixel between its two ends of `end` pixels; `whole()` if
    /// `length` is too short. `start` and `length` are in points, `scale` in pixels per point.
    static PatchAxis stretched(int end, qreal start, qreal length, qreal scale);
    /// Returns an axis without stretching.
    static PatchAxis whole(qreal start, qreal length, qreal scale);
};

/// An item that draws a small picture as up to nine patches, so that memory use does not grow with its size.
/// Set `smooth` to false unless the item is scaled: drawing is much faster and looks the same.
///
/// Threads: main, except `updatePaintNode()`, which runs on the render thread.
class PatchedItem : public QQuickItem {
    Q_OBJECT
    QML_ANONYMOUS

public:
    explicit PatchedItem(QQuickItem* parent = nullptr);

Q_SIGNALS:
    /// Emit to call `makePatches()` again.
    void appearanceChanged();

protected:
    struct Patches {
        PatchAxis columns;
        PatchAxis rows;
        /// Its size is the `pictureLength` of both axes.
        QImage picture = {};
    };

    /// Called before the first drawing and after changes of appearance, scale or size, unless the item is
    /// empty. A null picture draws nothing.
    [[nodiscard]] virtual Patches makePatches() const = 0;

    /// Pixels per point.
    [[nodiscard]] qreal devicePixelRatio() const;

    void updatePolish() override;
    QSGNode* updatePaintNode(QSGNode* oldNode, UpdatePaintNodeData* data) override;
    void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;
    void itemChange(ItemChange change, const ItemChangeData& data) override;

private:
    Patches m_patches;
};

} // namespace App::Design
