#include "Platform/Desktop/Shell/NotificationBanner.h"

#include "Platform/Encoding.h"

#include <utility>

namespace Platform::Desktop {

bool NotificationBanner::show(const UserNotification& notification, std::function<void()> onResponse)
{
    if (std::exchange(m_isOnView, true))
        return false;
    m_current = {QString::fromStdString(plainText(notification.title, LineBreaks::replaced)),
                 QString::fromStdString(plainText(notification.body, LineBreaks::kept)),
                 std::move(onResponse)};
    Q_EMIT notificationChanged();
    setShown(true);
    return true;
}

void NotificationBanner::clear()
{
    m_isOnView = false;
    setShown(false);
}

void NotificationBanner::respond()
{
    if (!m_isShown)
        return;
    const auto onResponse = std::exchange(m_current.onResponse, {});
    setShown(false);
    onResponse();
}

void NotificationBanner::hold(bool isHeld)
{
    if (!m_isShown)
        return;
    if (isHeld)
        m_timer.reset();
    else
        startTimer();
}

void NotificationBanner::leave()
{
    const auto makeWay = [this] {
        if (m_isShown)
            return;
        m_isOnView = false;
        Q_EMIT becameFree();
    };
    QMetaObject::invokeMethod(this, makeWay, Qt::QueuedConnection);
}

void NotificationBanner::setShown(bool isShown)
{
    if (std::exchange(m_isShown, isShown) == isShown)
        return;
    if (isShown)
        startTimer();
    else
        m_timer.reset();
    Q_EMIT isShownChanged();
}

void NotificationBanner::startTimer()
{
    m_timer = m_timers.scheduledTimer(viewTime, [this] { setShown(false); });
}

} // namespace Platform::Desktop
