#include "Platform/Linux/ShellState.h"

namespace Platform::Linux {

AuthorizationStatus ShellState::authorizationStatus() const
{
    const auto number = m_store.integer(authorizationKey);
    const bool isKnown = number >= static_cast<int>(AuthorizationStatus::notDetermined) &&
                         number <= static_cast<int>(AuthorizationStatus::ephemeral);
    return isKnown ? static_cast<AuthorizationStatus>(number) : AuthorizationStatus::notDetermined;
}

void ShellState::setAuthorizationStatus(AuthorizationStatus status)
{
    if (status == AuthorizationStatus::notDetermined)
        m_store.removeObject(authorizationKey);
    else
        m_store.set(authorizationKey, static_cast<std::int64_t>(status));
}

} // namespace Platform::Linux
