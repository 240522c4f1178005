#include "App/Design/PatchedItem.h"

#include <QQuickWindow>
#include <QSGImageNode>
#include <QSGTexture>

#include <memory>

namespace App::Design {

namespace {

/// Keeps the picture that its patches show parts of.
class PatchesNode final : public QSGNode {
public:
    void clear() { m_patches.clear(); }

    void append(QSGImageNode* patch)
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
    std::vector<std::unique_ptr<QSGImageNode>> m_patches;
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
}

qreal PatchedItem::devicePixelRatio() const
{
    return window() != nullptr ? window()->effectiveDevicePixelRatio() : 1;
}

void PatchedItem::updatePolish()
{
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
    QSGTexture* texture = node->texture(*window(), m_patches.picture);
    for (const PatchAxis::Span& row : m_patches.rows.spans) {
        for (const PatchAxis::Span& column : m_patches.columns.spans) {
            QSGImageNode* patch = window()->createImageNode();
            patch->setTexture(texture);
            patch->setFiltering(QSGTexture::Linear);
            patch->setSourceRect(column.sourceStart, row.sourceStart, column.sourceLength, row.sourceLength);
            patch->setRect(column.targetStart, row.targetStart, column.targetLength, row.targetLength);
            node->append(patch);
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
    if (change == ItemDevicePixelRatioHasChanged || change == ItemSceneChange)
        polish();
}

} // namespace App::Design
