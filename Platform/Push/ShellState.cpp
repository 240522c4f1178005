#include "Platform/Push/ShellState.h"

namespace Platform::Push {

AuthorizationStatus ShellState::authorizationStatus() const
{
    const auto number = m_store.integer(authorizationKey);
    const bool isKnown = number >= static_cast<int>(AuthorizationStatus::notDetermined) &&
                         number <= static_cast<int>(AuthorizationStatus::ephemeral);
    return isKnown ? static_cast<AuthorizationStatus>(number) : AuthorizationStatus::notDetermined;
}

bool ShellState::setAuthorizationStatus(AuthorizationStatus status)
{
    return status == AuthorizationStatus::notDetermined
               ? m_store.removeObject(authorizationKey)
               : m_store.set(authorizationKey, static_cast<std::int64_t>(status));
}

} // namespace Platform::Push
