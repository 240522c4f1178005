#include "App/FocusVisibility.h"

#include <QEvent>
#include <QGuiApplication>

#include <utility>

namespace App {

FocusVisibility::FocusVisibility(QObject* parent) : QObject(parent)
{
    qGuiApp->installEventFilter(this);
}

bool FocusVisibility::eventFilter(QObject* watched, QEvent* event)
{
    const QEvent::Type type = event->type();
    if (type == QEvent::KeyPress)
        setShown(true);
    else if (type == QEvent::MouseButtonPress || type == QEvent::TouchBegin)
        setShown(false);
    return QObject::eventFilter(watched, event);
}

void FocusVisibility::setShown(bool isShown)
{
    if (std::exchange(m_isShown, isShown) != isShown)
        Q_EMIT isShownChanged();
}

} // namespace App
