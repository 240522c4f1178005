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

namespace sdbus {
class IProxy;
class Message;
class MethodReply;
} // namespace sdbus

namespace Platform {
class DispatchQueue;
} // namespace Platform

namespace Platform::Linux {

class SessionBus;

/// The appearance that the user has chosen on this desktop, by the desktop portal; one that the bus can start
/// counts.
///
/// Each portal that comes up is asked anew, and a complete answer replaces all that was known before. While
/// there is none the last answer stays in force, so that a restart is not seen.
///
/// Threads: main. Ownership: refers to the bus and the queue; make it before the bus is started and stop the
/// bus before it ends. Errors: none; many desktops have no portal, and what is of a wrong type is ignored.
/// Source: XDG Desktop Portal, org.freedesktop.portal.Settings, version 1 and later.
class PortalAppearance final : public AppearanceSource {
public:
    PortalAppearance(SessionBus& bus, DispatchQueue& mainQueue);
    ~PortalAppearance() override;

    [[nodiscard]] Appearance current() const override { return m_appearance.value_or(Appearance{}); }
    void observe(Observer observer) override { m_observer = std::move(observer); }

private:
    /// Namespace and key.
    using Name = std::pair<std::string_view, std::string_view>;
    /// Empty for a type that no setting has here.
    using Value = std::variant<std::monostate, bool, std::uint32_t, double>;
    /// Those that matter here, always all of them, each in its type.
    using Settings = std::map<Name, Value>;

    static Settings defaults();
    static void set(Settings& settings, const Name& name, const Value& value);
    static Appearance appearanceOf(const Settings& settings);

    /// From any thread, as long as the bus may call. Work that comes after the end of this object is dropped.
    void onMainQueue(std::function<void()> work);
    void adopt(const std::string& owner);
    void ask();
    /// On the thread of the bus.
    void hearAnswer(sdbus::MethodReply& reply);
    /// On the thread of the bus.
    void hearChange(sdbus::Message& signal);
    void use(Settings settings);

    DispatchQueue& m_mainQueue;
    std::unique_ptr<sdbus::IProxy> m_portal;
    /// The connection of the portal: empty while there is none, absent while that is not known.
    std::optional<std::string> m_owner;
    Settings m_settings = defaults();
    /// Absent before the first answer.
    std::optional<Appearance> m_appearance;
    Observer m_observer;
    /// Referred to weakly by work that waits on the main queue.
    const std::shared_ptr<bool> m_life = std::make_shared<bool>();
};

} // namespace Platform::Linux
