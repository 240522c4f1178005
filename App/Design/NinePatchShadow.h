#pragma once

#include "App/Design/PatchedItem.h"

#include <QColor>
#include <QPointF>

namespace App::Design {

/// The soft shadow of a rounded rectangle of the item's size, shifted by `offset`.
///
/// Shadows with the same look share one picture. Lengths are in points. The blur is Gaussian; its standard
/// deviation is half of `blurRadius`.
class NinePatchShadow : public App::Design::PatchedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(qreal cornerRadius MEMBER m_cornerRadius NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(qreal blurRadius MEMBER m_blurRadius NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(QColor color MEMBER m_color NOTIFY appearanceChanged FINAL)
    Q_PROPERTY(QPointF offset MEMBER m_offset NOTIFY appearanceChanged FINAL)

protected:
    [[nodiscard]] Patches makePatches() const override;

private:
    qreal m_cornerRadius = 0;
    qreal m_blurRadius = 0;
    QColor m_color = Qt::transparent;
    QPointF m_offset;
};

} // namespace App::Design
