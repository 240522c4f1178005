#include "App/Design/PatchedItem.h"

#include <QQuickWindow>
#include <QSGImageNode>
#include <QSGRectangleNode>
#include <QSGTexture>

#include <memory>

namespace App::Design {

namespace {

/// Owns the texture that its patches show. A transform node, because the software renderer loses the position
/// of patches that are added later to a node without a state of its own.
class PatchesNode final : public QSGTransformNode {
public:
    void clear() { m_patches.clear(); }

    void append(QSGNode* patch)
    {
        patch->setFlag(OwnedByParent, false);
        m_patches.emplace_back(patch);
        appendChildNode(patch);
    }

    QSGTexture* texture(QQuickWindow& window, const QImage& picture)
    {
        if (picture.cacheKey() != m_pictureKey || !m_texture) {
            m_texture.reset(window.createTextureFromImage(picture));
            m_pictureKey = picture.cacheKey();
        }
        return m_texture.get();
    }

private:
    std::unique_ptr<QSGTexture> m_texture;
    qint64 m_pictureKey = 0;
    std::vector<std::unique_ptr<QSGNode>> m_patches;
};

} // namespace

PatchAxis PatchAxis::stretched(int end, qreal start, qreal length, qreal scale)
{
    if (qRound(length * scale) <= 2 * end + 1)
        return whole(start, length, scale);
    const qreal endPixels = end;
    const qreal endLength = endPixels / scale;
    return {2 * end + 1,
            {{0, endPixels, start, endLength},
             {endPixels, 1, start + endLength, length - 2 * endLength},
             {endPixels + 1, endPixels, start + length - endLength, endLength}}};
}

PatchAxis PatchAxis::whole(qreal start, qreal length, qreal scale)
{
    const int pixels = qRound(length * scale);
    return {pixels, {{0, static_cast<qreal>(pixels), start, length}}};
}

PatchedItem::PatchedItem(QQuickItem* parent) : QQuickItem(parent)
{
    setFlag(ItemHasContents);
    connect(this, &PatchedItem::appearanceChanged, this, &QQuickItem::polish);
    connect(this, &QQuickItem::smoothChanged, this, &QQuickItem::update);
}

qreal PatchedItem::devicePixelRatio() const
{
    return window() != nullptr ? window()->effectiveDevicePixelRatio() : 1;
}

void PatchedItem::updatePolish()
{
    if (!isVisible())
        return;
    m_patches = width() > 0 && height() > 0 ? makePatches() : Patches();
    update();
}

QSGNode* PatchedItem::updatePaintNode(QSGNode* oldNode, UpdatePaintNodeData* /*data*/)
{
    if (m_patches.picture.isNull()) {
        delete oldNode;
        return nullptr;
    }
    auto* node = oldNode != nullptr ? static_cast<PatchesNode*>(oldNode) : new PatchesNode;
    node->clear();
    // Without scaling, a one-pixel patch is drawn as a filled rectangle, which is faster than stretching a
    // texture. With scaling, its edges would not meet those of its neighbors.
    const auto rectangle = [&](const QRectF& target, const QColor& color) {
        QSGRectangleNode* patch = window()->createRectangleNode();
        patch->setRect(target);
        patch->setColor(color);
        return patch;
    };
    const auto image = [&](const QRectF& target, QSGTexture* texture, const QRectF& source) {
        QSGImageNode* patch = window()->createImageNode();
        patch->setRect(target);
        patch->setTexture(texture);
        patch->setFiltering(smooth() ? QSGTexture::Linear : QSGTexture::Nearest);
        patch->setSourceRect(source);
        return patch;
    };
    QSGTexture* texture = node->texture(*window(), m_patches.picture);
    for (const PatchAxis::Span& row : m_patches.rows.spans) {
        for (const PatchAxis::Span& column : m_patches.columns.spans) {
            const QRectF source(column.sourceStart, row.sourceStart, column.sourceLength, row.sourceLength);
            const QRectF target(column.targetStart, row.targetStart, column.targetLength, row.targetLength);
            if (!smooth() && source.size() == QSizeF(1, 1))
                node->append(rectangle(target, m_patches.picture.pixelColor(source.topLeft().toPoint())));
            else
                node->append(image(target, texture, source));
        }
    }
    return node;
}

void PatchedItem::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry)
{
    QQuickItem::geometryChange(newGeometry, oldGeometry);
    if (newGeometry.size() != oldGeometry.size())
        polish();
}

void PatchedItem::itemChange(ItemChange change, const ItemChangeData& data)
{
    QQuickItem::itemChange(change, data);
    if (change == ItemDevicePixelRatioHasChanged || change == ItemSceneChange ||
        change == ItemVisibleHasChanged)
        polish();
}

} // namespace App::Design
