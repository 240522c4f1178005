#include "Platform/Desktop/Shell/PermissionPanel.h"

#include <utility>

namespace Platform::Desktop {

void PermissionPanel::ask(std::function<void(bool isGranted)> completion)
{
    m_questions.push_back(std::move(completion));
    askNext();
}

void PermissionPanel::setOnScreen(bool isOnScreen)
{
    m_isOnScreen = isOnScreen;
    m_isOnView = false;
    setAsking(false);
    askNext();
}

void PermissionPanel::answer(bool isGranted)
{
    if (!m_isAsking)
        return;
    const auto completion = std::move(m_questions.front());
    m_questions.pop_front();
    setAsking(false);
    completion(isGranted);
}

void PermissionPanel::leave()
{
    const auto makeWay = [this] {
        if (m_isAsking)
            return;
        m_isOnView = false;
        askNext();
    };
    QMetaObject::invokeMethod(this, makeWay, Qt::QueuedConnection);
}

void PermissionPanel::askNext()
{
    if (!m_isOnScreen || m_isOnView || m_questions.empty())
        return;
    m_isOnView = true;
    setAsking(true);
}

void PermissionPanel::setAsking(bool isAsking)
{
    if (std::exchange(m_isAsking, isAsking) != isAsking)
        Q_EMIT isAskingChanged();
}

} // namespace Platform::Desktop
