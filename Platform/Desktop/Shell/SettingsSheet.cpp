#include "Platform/Desktop/Shell/SettingsSheet.h"

#include <utility>

namespace Platform::Desktop {

void SettingsSheet::open()
{
    const bool wasOpen = std::exchange(m_isOpen, true);
    refresh();
    if (!wasOpen)
        Q_EMIT isOpenChanged();
}

void SettingsSheet::refresh()
{
    if (m_isOpen)
        Q_EMIT preferencesChanged();
}

void SettingsSheet::close()
{
    if (std::exchange(m_isOpen, false))
        Q_EMIT isOpenChanged();
}

bool SettingsSheet::isAllowed() const
{
    const AuthorizationStatus status = m_preferences.authorizationStatus();
    return status != AuthorizationStatus::notDetermined && status != AuthorizationStatus::denied;
}

void SettingsSheet::setAllowed(bool isAllowed)
{
    m_preferences.setAllowed(isAllowed);
    refresh();
}

QString SettingsSheet::notificationServer() const
{
    return QString::fromStdString(m_preferences.notificationServer());
}

QString SettingsSheet::pushSource() const
{
    return QString::fromStdString(m_preferences.pushSource());
}

} // namespace Platform::Desktop
