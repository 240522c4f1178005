#include "Platform/Desktop/Shell/ApplicationMark.h"

#include <QGuiApplication>
#include <QIcon>
#include <QPainter>

namespace Platform::Desktop {

void ApplicationMark::paint(QPainter* painter)
{
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    QGuiApplication::windowIcon().paint(painter, boundingRect().toRect());
}

} // namespace Platform::Desktop
