#include "Platform/Linux/Bus/PortalAppearance.h"

#include "Platform/Linux/Bus/BusClient.h"

#include <cmath>
#include <optional>
#include <vector>

namespace Platform::Linux::Bus {

namespace {

constexpr const char* portalName = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
constexpr const char* settingsInterface = "org.freedesktop.portal.Settings";

/// A portal that starts with the desktop may take minutes to reply; the reply is still useful then.
constexpr std::nullopt_t unlimitedTime = std::nullopt;

constexpr std::string_view appearanceSpace = "org.freedesktop.appearance";
constexpr std::string_view interfaceSpace = "org.gnome.desktop.interface";
constexpr std::pair colorScheme{appearanceSpace, std::string_view("color-scheme")};
constexpr std::pair contrast{appearanceSpace, std::string_view("contrast")};
constexpr std::pair reducedMotion{appearanceSpace, std::string_view("reduced-motion")};
constexpr std::pair enableAnimations{interfaceSpace, std::string_view("enable-animations")};
constexpr std::pair textScalingFactor{interfaceSpace, std::string_view("text-scaling-factor")};

constexpr std::uint32_t prefersDark = 1;
constexpr std::uint32_t prefersReducedMotion = 1;
constexpr std::uint32_t prefersHighContrast = 1;
constexpr double minimumTextScale = 1;
constexpr double maximumTextScale = 2;

/// Returns an empty value for a type that none of these settings has.
template <typename Value>
Value settingValue(const BusValue& value)
{
    Value setting;
    if (value.containsValueOfType<bool>())
        setting = value.get<bool>();
    else if (value.containsValueOfType<std::uint32_t>())
        setting = value.get<std::uint32_t>();
    else if (value.containsValueOfType<double>())
        setting = value.get<double>();
    return setting;
}

} // namespace

PortalAppearance::PortalAppearance(SessionBus& bus, DispatchQueue& mainQueue)
    : m_client(std::make_unique<BusClient>(bus, mainQueue))
{
    m_client->watchNames("arg0='org.freedesktop.portal.Desktop'",
                         [this](const std::string&, const std::string& owner) { adopt(owner); });
    m_client->subscribe<std::string, std::string, BusValue>(
        {portalName, portalPath, settingsInterface, "SettingChanged"},
        [this](const std::string& sender, const std::string& space, const std::string& key,
               const BusValue& value) {
            settingChanged(sender, {space, key}, settingValue<Value>(value));
        });
    requestSettings();
}

PortalAppearance::~PortalAppearance() = default;

PortalAppearance::Settings PortalAppearance::defaults()
{
    return {{colorScheme, std::uint32_t{0}},
            {contrast, std::uint32_t{0}},
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
        // In this order, NaN becomes the minimum.
        .textScale = std::fmin(std::fmax(textScale, minimumTextScale), maximumTextScale),
        .isContrastHigh = settings.at(contrast) == Value(prefersHighContrast),
    };
}

void PortalAppearance::adopt(const std::string& owner)
{
    m_owner = owner;
    if (!owner.empty())
        requestSettings();
}

void PortalAppearance::requestSettings()
{
    using Reply = std::map<std::string, BusDictionary>;
    m_client->call<Reply>(
        {portalName, portalPath, settingsInterface, "ReadAll", unlimitedTime},
        [this](const BusAnswer<Reply>& answer) {
            if (!answer.value)
                return;
            Settings settings = defaults();
            for (const auto& [space, values] : *answer.value)
                for (const auto& [key, value] : values)
                    set(settings, {space, key}, settingValue<Value>(value));
            receiveSettings(answer.sender, settings);
        },
        std::vector{std::string(appearanceSpace), std::string(interfaceSpace)});
}

void PortalAppearance::receiveSettings(const std::string& sender, const Settings& settings)
{
    if (!m_owner)
        m_owner = sender;
    if (sender == m_owner)
        use(settings);
}

void PortalAppearance::settingChanged(const std::string& sender, const Name& name, const Value& value)
{
    // Accept signals from the portal only. Before the first reply, ignore them: the reply includes the
    // change.
    if (sender != m_owner || !m_appearance)
        return;
    Settings settings = m_settings;
    set(settings, name, value);
    use(std::move(settings));
}

void PortalAppearance::use(Settings settings)
{
    m_settings = std::move(settings);
    const Appearance appearance = appearanceOf(m_settings);
    if (m_appearance == appearance)
        return;
    m_appearance = appearance;
    // A copy: the observer may replace itself.
    if (const Observer observer = m_observer)
        observer(appearance);
}

} // namespace Platform::Linux::Bus
