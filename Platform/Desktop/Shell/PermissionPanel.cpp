#include "Platform/Desktop/Shell/PermissionPanel.h"

#include <utility>

namespace Platform::Desktop {

void PermissionPanel::requestPermission(std::function<void(bool isGranted)> completion)
{
    m_requests.push_back(std::move(completion));
    showNextRequest();
}

void PermissionPanel::setOnScreen(bool isOnScreen)
{
    m_isOnScreen = isOnScreen;
    m_isOnView = false;
    setActive(false);
    showNextRequest();
}

void PermissionPanel::answer(bool isGranted)
{
    if (!m_isActive)
        return;
    const auto completion = std::move(m_requests.front());
    m_requests.pop_front();
    setActive(false);
    completion(isGranted);
}

void PermissionPanel::leave()
{
    const auto makeWay = [this] {
        if (m_isActive)
            return;
        m_isOnView = false;
        showNextRequest();
    };
    QMetaObject::invokeMethod(this, makeWay, Qt::QueuedConnection);
}

void PermissionPanel::showNextRequest()
{
    if (!m_isOnScreen || m_isOnView || m_requests.empty())
        return;
    m_isOnView = true;
    setActive(true);
}

void PermissionPanel::setActive(bool isActive)
{
    if (std::exchange(m_isActive, isActive) != isActive)
        Q_EMIT isActiveChanged();
}

} // namespace Platform::Desktop
