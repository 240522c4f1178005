#pragma once

#include <QPointF>
#include <QQuickItem>

namespace Platform::Desktop {

/// Where fingers and pointers press. Nothing of what they do within it reaches what is below it, not even
/// pointer handlers there: those are only kept out by an item that holds on to what it was given until the
/// event is over.
///
/// Threads: main.
class PressArea : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(bool isPressed READ isPressed NOTIFY isPressedChanged FINAL)
    /// How far down the finger has moved since it was put down; below 0: up. Stays until the next one.
    Q_PROPERTY(qreal travel READ travel NOTIFY travelChanged FINAL)
    /// Whether wheels stop here as well. A list that scrolls needs them to pass.
    Q_PROPERTY(bool blocksWheel MEMBER m_blocksWheel NOTIFY blocksWheelChanged FINAL)

public:
    explicit PressArea(QQuickItem* parent = nullptr);

    [[nodiscard]] bool isPressed() const { return m_isPressed; }
    [[nodiscard]] qreal travel() const { return m_travel; }

Q_SIGNALS:
    void isPressedChanged();
    void travelChanged();
    void blocksWheelChanged();
    /// Pressed, and released within it. Called after the event.
    void tapped();
    /// Pressed, and then neither released within it nor left to it. Called after the event.
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
    /// The one of the fingers that counts.
    int m_pointId = 0;
    qreal m_start = 0;
    qreal m_travel = 0;
};

} // namespace Platform::Desktop
