#pragma once

#include "Platform/Linux/Bus/NotificationServer.h"
#include "Platform/Push/ShellState.h"
#include "Platform/Shell.h"

#include <string>
#include <utility>

namespace Platform::Linux {

/// The notification settings of this device. Threads: main. Ownership: holds references to its arguments.
class DeviceNotificationPreferences final : public NotificationPreferences {
public:
    /// `server` may be null. `pushSource` is shown to the user.
    DeviceNotificationPreferences(Push::ShellState& state, const Bus::NotificationServer* server,
                                  std::string pushSource)
        : m_state(state), m_server(server), m_pushSource(std::move(pushSource))
    {}

    [[nodiscard]] AuthorizationStatus authorizationStatus() const override
    {
        return m_state.authorizationStatus();
    }
    void setAllowed(bool isAllowed) override
    {
        m_state.setAuthorizationStatus(isAllowed ? AuthorizationStatus::authorized
                                                 : AuthorizationStatus::denied);
    }
    [[nodiscard]] std::string notificationServer() const override
    {
        const auto information = m_server != nullptr ? m_server->information() : std::nullopt;
        return information ? information->name + " " + information->version : std::string();
    }
    [[nodiscard]] std::string pushSource() const override { return m_pushSource; }

private:
    Push::ShellState& m_state;
    const Bus::NotificationServer* m_server;
    const std::string m_pushSource;
};

} // namespace Platform::Linux
