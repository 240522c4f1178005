#include "Platform/Desktop/Shell/PressArea.h"

#include <QCursor>

#include <utility>

namespace Platform::Desktop {

PressArea::PressArea(QQuickItem* parent) : QQuickItem(parent)
{
    setAcceptedMouseButtons(Qt::AllButtons);
    setAcceptTouchEvents(true);
    setAcceptHoverEvents(true);
    setCursor(Qt::ArrowCursor);
}

// Events are accepted unless a handler ignores them.

void PressArea::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        press(event->point(0));
}

void PressArea::mouseMoveEvent(QMouseEvent* event)
{
    move(event->point(0));
}

void PressArea::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        release(contains(event->position()));
}

void PressArea::mouseUngrabEvent()
{
    release(false);
}

void PressArea::touchEvent(QTouchEvent* event)
{
    if (event->type() == QEvent::TouchCancel) {
        // The points have the state of the last event, which may be the press.
        release(false);
        return;
    }
    for (const QEventPoint& point : event->points()) {
        if (point.state() == QEventPoint::Pressed)
            press(point);
        else if (point.id() != m_pointId)
            continue;
        else if (point.state() == QEventPoint::Released)
            release(contains(point.position()));
        else
            move(point);
    }
}

void PressArea::touchUngrabEvent()
{
    release(false);
}

void PressArea::hoverEnterEvent(QHoverEvent* /*event*/) {}

void PressArea::hoverMoveEvent(QHoverEvent* /*event*/) {}

void PressArea::wheelEvent(QWheelEvent* event)
{
    event->setAccepted(m_blocksWheel);
}

void PressArea::press(const QEventPoint& point)
{
    if (std::exchange(m_isPressed, true))
        return;
    m_pointId = point.id();
    m_start = point.scenePosition().y();
    setTravel(0);
    Q_EMIT isPressedChanged();
}

void PressArea::move(const QEventPoint& point)
{
    if (m_isPressed)
        setTravel(point.scenePosition().y() - m_start);
}

void PressArea::release(bool isTap)
{
    if (!std::exchange(m_isPressed, false))
        return;
    Q_EMIT isPressedChanged();
    QMetaObject::invokeMethod(this, isTap ? &PressArea::tapped : &PressArea::cancelled, Qt::QueuedConnection);
}

void PressArea::setTravel(qreal travel)
{
    m_travel = travel;
    Q_EMIT travelChanged();
}

} // namespace Platform::Desktop
