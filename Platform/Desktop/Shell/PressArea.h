#pragma once

#include <QPointF>
#include <QQuickItem>

namespace Platform::Desktop {

/// An item that accepts touch and mouse presses. It blocks them from the items below, pointer handlers
/// included, by keeping its grab until the event has been delivered completely.
///
/// Threads: main.
class PressArea : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(bool isPressed READ isPressed NOTIFY isPressedChanged FINAL)
    /// The vertical distance in points since the press; negative means upward. Keeps its value until the next
    /// press.
    Q_PROPERTY(qreal travel READ travel NOTIFY travelChanged FINAL)
    /// Whether wheel events are blocked as well. Must be false inside a scrolling list.
    Q_PROPERTY(bool blocksWheel MEMBER m_blocksWheel NOTIFY blocksWheelChanged FINAL)

public:
    explicit PressArea(QQuickItem* parent = nullptr);

    [[nodiscard]] bool isPressed() const { return m_isPressed; }
    [[nodiscard]] qreal travel() const { return m_travel; }

Q_SIGNALS:
    void isPressedChanged();
    void travelChanged();
    void blocksWheelChanged();
    /// Emitted after the event when a press was released inside the item.
    void tapped();
    /// Emitted after the event when a press was released outside the item or taken over by another item.
    void cancelled();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseUngrabEvent() override;
    void touchEvent(QTouchEvent* event) override;
    void touchUngrabEvent() override;
    void hoverEnterEvent(QHoverEvent* event) override;
    void hoverMoveEvent(QHoverEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    void press(const QEventPoint& point);
    void move(const QEventPoint& point);
    void release(bool isTap);
    void setTravel(qreal travel);

    bool m_blocksWheel = false;
    bool m_isPressed = false;
    /// The touch point that counts; others are ignored.
    int m_pointId = 0;
    qreal m_start = 0;
    qreal m_travel = 0;
};

} // namespace Platform::Desktop
