#pragma once

#include "Tests/Platform/Linux/Bus/SDBusVersions.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <semaphore>
#include <string>
#include <vector>

/// The desktop's services on the session bus: a notification server, and a portal with a color scheme.
class DesktopServices {
public:
    explicit DesktopServices(bool isDark = false)
    {
        using Dictionary = std::map<std::string, sdbus::Variant>;
        std::map<std::string, Dictionary> settings{
            {"org.freedesktop.appearance", {{"color-scheme", sdbus::Variant(isDark ? 1U : 2U)}}}};
        addMethod(*m_server, server, "GetCapabilities", [] {
            return std::vector<std::string>{"actions", "body"};
        });
        addMethod(*m_server, server, "Notify",
                  [this](const std::string&, std::uint32_t, const std::string&, const std::string& summary,
                         const std::string&, const std::vector<std::string>&, const Dictionary&,
                         std::int32_t) {
                      m_summary = summary;
                      m_shown.release();
                      return ++m_lastNotification;
                  });
        addMethod(*m_portal, "org.freedesktop.portal.Settings", "ReadAll",
                  [settings](const std::vector<std::string>&) { return settings; });
        publishMethods(*m_server);
        publishMethods(*m_portal);
        takeName(*m_bus, server);
        takeName(*m_bus, "org.freedesktop.portal.Desktop");
        m_bus->enterEventLoopAsync();
    }
    ~DesktopServices() { m_bus->leaveEventLoop(); }
    DesktopServices(const DesktopServices&) = delete;
    DesktopServices& operator=(const DesktopServices&) = delete;

    /// Waits for the first notification and returns its summary; empty after a timeout.
    std::string waitForNotification()
    {
        return m_shown.try_acquire_for(std::chrono::seconds(20)) ? m_summary : std::string();
    }
    /// Taps the notification that was shown last.
    void tap() const
    {
        m_server->emitSignal("ActionInvoked")
            .onInterface(server)
            .withArguments(m_lastNotification, std::string("default"));
    }

private:
    static constexpr const char* server = "org.freedesktop.Notifications";

    std::string m_summary;
    std::uint32_t m_lastNotification = 0;
    std::counting_semaphore<> m_shown{0};
    std::unique_ptr<sdbus::IConnection> m_bus = sdbus::createSessionBusConnection();
    std::unique_ptr<sdbus::IObject> m_server =
        sdbus::createObject(*m_bus, ObjectPath("/org/freedesktop/Notifications"));
    std::unique_ptr<sdbus::IObject> m_portal =
        sdbus::createObject(*m_bus, ObjectPath("/org/freedesktop/portal/desktop"));
};
