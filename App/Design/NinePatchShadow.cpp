#include "App/Design/NinePatchShadow.h"

#include "App/Design/Raster.h"

#include <QCache>
#include <QPainter>
#include <QQuickWindow>
#include <QSGImageNode>
#include <QSGTexture>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

namespace App::Design {

namespace {

/// What tells one picture from another; lengths in pixels.
struct Look {
    QSize shape;
    int reach;
    qreal cornerRadius;
    qreal sigma;
    QRgb color;

    friend bool operator==(const Look& left, const Look& right)
    {
        return left.shape == right.shape && left.reach == right.reach &&
               left.cornerRadius == right.cornerRadius && left.sigma == right.sigma &&
               left.color == right.color;
    }
    friend size_t qHash(const Look& look, size_t seed = 0)
    {
        return qHashMulti(seed, look.shape.width(), look.shape.height(), look.reach, look.cornerRadius,
                          look.sigma, look.color);
    }
};

QImage draw(const Look& look)
{
    const int margin = 2 * look.reach;
    QImage mask(look.shape + QSize(margin, margin), QImage::Format_Alpha8);
    mask.fill(0);
    QPainter painter(&mask);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::black);
    painter.drawRoundedRect(QRect(QPoint(look.reach, look.reach), look.shape), look.cornerRadius,
                            look.cornerRadius);
    painter.end();
    return tinted(blurred(mask, look.sigma), QColor::fromRgba(look.color));
}

QImage picture(const Look& look)
{
    constexpr int cachedKibibytes = 4096;
    static QCache<Look, QImage> cache(cachedKibibytes);
    if (const QImage* known = cache.object(look))
        return *known;
    QImage drawn = draw(look);
    cache.insert(look, new QImage(drawn), static_cast<int>(drawn.sizeInBytes() / 1024));
    return drawn;
}

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

NinePatchShadow::NinePatchShadow(QQuickItem* parent) : QQuickItem(parent)
{
    setFlag(ItemHasContents);
    connect(this, &NinePatchShadow::appearanceChanged, this, &QQuickItem::polish);
}

void NinePatchShadow::updatePolish()
{
    const qreal scale = devicePixelRatio();
    const bool isSeen = m_color.alpha() > 0 && width() > 0 && height() > 0;
    m_picture = isSeen ? picture({
                             .shape = {axis(width(), 0).shapeLength, axis(height(), 0).shapeLength},
                             .reach = reachPixels(),
                             .cornerRadius = cornerPixels(),
                             .sigma = m_blurRadius * scale / 2,
                             .color = m_color.rgba(),
                         })
                       : QImage();
    update();
}

QSGNode* NinePatchShadow::updatePaintNode(QSGNode* oldNode, UpdatePaintNodeData* /*data*/)
{
    if (m_picture.isNull()) {
        delete oldNode;
        return nullptr;
    }
    auto* node = oldNode != nullptr ? static_cast<PatchesNode*>(oldNode) : new PatchesNode;
    node->clear();
    QSGTexture* texture = node->texture(*window(), m_picture);
    const Axis columns = axis(width(), m_offset.x());
    const Axis rows = axis(height(), m_offset.y());
    for (const Span& row : rows.spans) {
        for (const Span& column : columns.spans) {
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

void NinePatchShadow::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry)
{
    QQuickItem::geometryChange(newGeometry, oldGeometry);
    if (newGeometry.size() != oldGeometry.size())
        polish();
}

void NinePatchShadow::itemChange(ItemChange change, const ItemChangeData& data)
{
    QQuickItem::itemChange(change, data);
    if (change == ItemDevicePixelRatioHasChanged || change == ItemSceneChange)
        polish();
}

NinePatchShadow::Axis NinePatchShadow::axis(qreal length, qreal offset) const
{
    const qreal scale = devicePixelRatio();
    const int reach = reachPixels();
    const qreal start = offset - reach / scale;
    const qreal shadowLength = length + 2 * reach / scale;
    // Beyond this, a corner changes nothing, and one pixel stands for all of the edge.
    const int corner = static_cast<int>(std::ceil(cornerPixels())) + reach;
    const int shape = qRound(length * scale);
    if (shape <= 2 * corner + 1)
        return {shape, {{0, static_cast<qreal>(shape) + 2 * reach, start, shadowLength}}};
    const qreal end = corner + reach;
    const qreal endLength = end / scale;
    return {2 * corner + 1,
            {{0, end, start, endLength},
             {end, 1, start + endLength, shadowLength - 2 * endLength},
             {end + 1, end, start + shadowLength - endLength, endLength}}};
}

/// At most a half circle, however much is asked for.
qreal NinePatchShadow::cornerPixels() const
{
    return std::clamp(m_cornerRadius, 0.0, std::min(width(), height()) / 2) * devicePixelRatio();
}

/// How far the shadow is seen around the shape: three standard deviations.
int NinePatchShadow::reachPixels() const
{
    return static_cast<int>(std::ceil(1.5 * m_blurRadius * devicePixelRatio()));
}

qreal NinePatchShadow::devicePixelRatio() const
{
    return window() != nullptr ? window()->effectiveDevicePixelRatio() : 1;
}

} // namespace App::Design
