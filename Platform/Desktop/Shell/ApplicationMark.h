#pragma once

#include <QQuickPaintedItem>

namespace Platform::Desktop {

/// The icon of the application's windows; nothing while it has none. Threads: main.
class ApplicationMark : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    /// Width and height in points.
    Q_PROPERTY(qreal size READ width WRITE setSide NOTIFY widthChanged FINAL REQUIRED)

public:
    using QQuickPaintedItem::QQuickPaintedItem;

    void setSide(qreal side) { setSize({side, side}); }
    void paint(QPainter* painter) override;
};

} // namespace Platform::Desktop
