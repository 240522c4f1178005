#pragma once

#include "Platform/Appearance.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace Platform {
class DispatchQueue;
} // namespace Platform

namespace Platform::Linux::Bus {

class BusClient;
class SessionBus;

/// The user's appearance settings, read from the desktop portal. The bus starts the portal if it can.
///
/// All settings are requested each time a portal starts, and the reply replaces the previous ones. They are
/// kept while no portal runs, so a restart of the portal has no visible effect.
///
/// Threads: main. Ownership: holds references to the bus and the queue. Errors: none; many desktops have no
/// portal, and values of the wrong type are ignored.
/// Source: XDG Desktop Portal, org.freedesktop.portal.Settings, version 1 and later.
class PortalAppearance final : public AppearanceSource {
public:
    PortalAppearance(SessionBus& bus, DispatchQueue& mainQueue);
    ~PortalAppearance() override;

    [[nodiscard]] std::optional<Appearance> current() const override { return m_appearance; }
    void observe(Observer observer) override { m_observer = std::move(observer); }

private:
    /// Namespace and key.
    using Name = std::pair<std::string_view, std::string_view>;
    /// Empty for a type that none of these settings has.
    using Value = std::variant<std::monostate, bool, std::uint32_t, double>;
    /// Always holds every setting used here, each with its own type.
    using Settings = std::map<Name, Value>;

    static Settings defaults();
    static void set(Settings& settings, const Name& name, const Value& value);
    static Appearance appearanceOf(const Settings& settings);

    void adopt(const std::string& owner);
    void requestSettings();
    void receiveSettings(const std::string& sender, const Settings& settings);
    void settingChanged(const std::string& sender, const Name& name, const Value& value);
    void use(Settings settings);

    /// The portal's unique name: empty if no portal runs, absent while that is unknown.
    std::optional<std::string> m_owner;
    Settings m_settings = defaults();
    /// Absent before the first reply.
    std::optional<Appearance> m_appearance;
    Observer m_observer;
    const std::unique_ptr<BusClient> m_client;
};

} // namespace Platform::Linux::Bus
