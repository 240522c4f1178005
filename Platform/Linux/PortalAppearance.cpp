#include "Platform/Linux/PortalAppearance.h"

#include "Platform/DispatchQueue.h"
#include "Platform/Linux/SessionBus.h"

#include <sdbus-c++/sdbus-c++.h>

#include <cmath>
#include <limits>
#include <vector>

namespace Platform::Linux {

namespace {

constexpr const char* portalName = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
constexpr const char* settingsInterface = "org.freedesktop.portal.Settings";

/// A portal that comes up with the desktop may answer minutes later, and its answer is as good then.
constexpr std::uint64_t unlimitedTime = std::numeric_limits<std::uint64_t>::max();

constexpr std::string_view appearanceSpace = "org.freedesktop.appearance";
constexpr std::string_view interfaceSpace = "org.gnome.desktop.interface";
constexpr std::pair colorScheme{appearanceSpace, std::string_view("color-scheme")};
constexpr std::pair reducedMotion{appearanceSpace, std::string_view("reduced-motion")};
constexpr std::pair enableAnimations{interfaceSpace, std::string_view("enable-animations")};
constexpr std::pair textScalingFactor{interfaceSpace, std::string_view("text-scaling-factor")};

constexpr std::uint32_t prefersDark = 1;
constexpr std::uint32_t prefersReducedMotion = 1;
constexpr double minimumTextScale = 1;
constexpr double maximumTextScale = 2;

/// `value` without the message that it refers to, which belongs to the thread of the bus.
template <typename Value>
Value plainValue(const sdbus::Variant& value)
{
    if (value.containsValueOfType<bool>())
        return value.get<bool>();
    if (value.containsValueOfType<std::uint32_t>())
        return value.get<std::uint32_t>();
    if (value.containsValueOfType<double>())
        return value.get<double>();
    return {};
}

} // namespace

PortalAppearance::PortalAppearance(SessionBus& bus, DispatchQueue& mainQueue)
    : m_mainQueue(mainQueue), m_portal(sdbus::createProxy(bus.connection(), portalName, portalPath))
{
    bus.watchNames("arg0='org.freedesktop.portal.Desktop'",
                   [this](const std::string&, const std::string& owner) {
                       onMainQueue([this, owner] { adopt(owner); });
                   });
    bus.connection().addMatch(
        "type='signal',sender='org.freedesktop.portal.Desktop',path='/org/freedesktop/portal/desktop',"
        "interface='org.freedesktop.portal.Settings',member='SettingChanged'",
        [this](sdbus::Message& signal) { hearChange(signal); }, sdbus::floating_slot);
    ask();
}

PortalAppearance::~PortalAppearance() = default;

PortalAppearance::Settings PortalAppearance::defaults()
{
    return {{colorScheme, std::uint32_t{0}},
            {reducedMotion, std::uint32_t{0}},
            {enableAnimations, true},
            {textScalingFactor, 1.0}};
}

void PortalAppearance::set(Settings& settings, const Name& name, const Value& value)
{
    const auto found = settings.find(name);
    if (found != settings.end() && found->second.index() == value.index())
        found->second = value;
}

Appearance PortalAppearance::appearanceOf(const Settings& settings)
{
    const double textScale = std::get<double>(settings.at(textScalingFactor));
    return {
        .isDark = settings.at(colorScheme) == Value(prefersDark),
        .isMotionReduced = settings.at(reducedMotion) == Value(prefersReducedMotion) ||
                           settings.at(enableAnimations) == Value(false),
        // In this order what is not a number becomes the minimum.
        .textScale = std::fmin(std::fmax(textScale, minimumTextScale), maximumTextScale),
    };
}

void PortalAppearance::onMainQueue(std::function<void()> work)
{
    m_mainQueue.async([life = std::weak_ptr(m_life), work = std::move(work)] {
        if (!life.expired())
            work();
    });
}

void PortalAppearance::adopt(const std::string& owner)
{
    m_owner = owner;
    if (!owner.empty())
        ask();
}

void PortalAppearance::ask()
{
    try {
        auto question = m_portal->createMethodCall(settingsInterface, "ReadAll");
        question << std::vector{std::string(appearanceSpace), std::string(interfaceSpace)};
        m_portal->callMethod(
            question,
            [this](sdbus::MethodReply& reply, const sdbus::Error* error) {
                if (error == nullptr)
                    hearAnswer(reply);
            },
            unlimitedTime);
    } catch (const sdbus::Error&) {
        // The bus has gone, and has said so itself.
    }
}

void PortalAppearance::hearAnswer(sdbus::MethodReply& reply)
{
    Settings settings = defaults();
    try {
        std::map<std::string, std::map<std::string, sdbus::Variant>> answer;
        if (!(reply >> answer))
            return;
        for (const auto& [space, values] : answer)
            for (const auto& [key, value] : values)
                set(settings, {space, key}, plainValue<Value>(value));
    } catch (const sdbus::Error&) {
        return; // Not what the answer ought to carry.
    }
    onMainQueue([this, sender = reply.getSender(), settings = std::move(settings)] {
        if (!m_owner)
            m_owner = sender;
        if (sender == m_owner)
            use(settings);
    });
}

void PortalAppearance::hearChange(sdbus::Message& signal)
{
    try {
        std::string space;
        std::string key;
        sdbus::Variant value;
        if (!(signal >> space >> key >> value))
            return;
        onMainQueue([this, sender = signal.getSender(), space, key, plain = plainValue<Value>(value)] {
            // A peer may send its signals straight to this connection, past the rule that names the portal.
            // Before the first answer, that answer will say it as well.
            if (sender != m_owner || !m_appearance)
                return;
            Settings settings = m_settings;
            set(settings, {space, key}, plain);
            use(std::move(settings));
        });
    } catch (const sdbus::Error&) {
        // Not what the signal ought to carry.
    }
}

void PortalAppearance::use(Settings settings)
{
    m_settings = std::move(settings);
    const Appearance appearance = appearanceOf(m_settings);
    if (m_appearance == appearance)
        return;
    m_appearance = appearance;
    // A copy: the observer may put another in its place.
    if (const Observer observer = m_observer)
        observer(appearance);
}

} // namespace Platform::Linux
