#include "Platform/Linux/Bus/PortalAppearance.h"

#include "Platform/Linux/Bus/SessionBus.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Platform/Linux/Bus/SDBusVersions.h"

#include <gmock/gmock.h>

#include <cmath>

using Platform::Appearance;
using testing::ElementsAre;

namespace {

using Value = sdbus::Variant;
using Settings = std::map<std::string, std::map<std::string, Value>>;
constexpr const char* settingsInterface = "org.freedesktop.portal.Settings";
constexpr const char* look = "org.freedesktop.appearance";
constexpr const char* desk = "org.gnome.desktop.interface";

const Settings darkSettings{{look, {{"color-scheme", Value(1U)}}}};

/// Runs a portal until destroyed.
struct FakePortal {
    explicit FakePortal(const Settings& settings)
    {
        addMethod(*object, settingsInterface, "ReadAll", [=](const std::vector<std::string>& spaces) {
            return spaces == std::vector<std::string>{look, desk} ? settings : Settings();
        });
        publishMethods(*object);
        takeName(*peer, "org.freedesktop.portal.Desktop");
    }
    void change(const char* space, const char* key, const Value& value) const
    {
        object->emitSignal("SettingChanged").onInterface(settingsInterface).withArguments(space, key, value);
    }

    std::unique_ptr<sdbus::IConnection> peer = sdbus::createSessionBusConnection();
    std::unique_ptr<sdbus::IObject> object =
        createObject(*peer, ObjectPath("/org/freedesktop/portal/desktop"));
};

/// The test's thread serves both connections, so events have a fixed order.
struct PortalAppearanceTest : testing::Test {
    PortalAppearanceTest() { observe(appearance); }

    void observe(Platform::Linux::Bus::PortalAppearance& source)
    {
        source.observe([this](const Appearance& each) { seen.push_back(each); });
    }
    /// Replaces the portal with a new one and waits for its settings.
    void startPortal(const Settings& settings, const Appearance& expected)
    {
        portal.emplace(settings);
        EXPECT_THAT(observed(1), ElementsAre(expected));
    }
    /// Waits for `count` changes and returns them.
    std::vector<Appearance> observed(std::size_t count)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (; seen.size() < count && std::chrono::steady_clock::now() < end; work.runNext())
            static_cast<void>(processPending(*portal->peer) || processPending(bus.connection()));
        return std::exchange(seen, {});
    }

    std::vector<Appearance> seen;
    RecordingUnifiedLog log;
    ManualScheduler::Queue work;
    Platform::Linux::Bus::SessionBus bus{log.adapterLog};
    Platform::Linux::Bus::PortalAppearance appearance{bus, work};
    std::optional<FakePortal> portal;
};

TEST_F(PortalAppearanceTest, ReadsPortalSettings)
{
    const std::tuple<const char*, Settings, Appearance> cases[] = {
        {"dark", darkSettings, {true, false, 1}},
        {"no settings", {}, {false, false, 1}},
        {"reduced motion", {{look, {{"reduced-motion", Value(1U)}}}}, {false, true, 1}},
        {"high contrast", {{look, {{"contrast", Value(1U)}}}}, {false, false, 1, true}},
        {"light", {{look, {{"color-scheme", Value(2U)}}}}, {false, false, 1}},
        {"no animations", {{desk, {{"enable-animations", Value(false)}}}}, {false, true, 1}},
        {"large text", {{desk, {{"text-scaling-factor", Value(1.25)}}}}, {false, false, 1.25}},
        {"huge text", {{desk, {{"text-scaling-factor", Value(9.0)}}}}, {false, false, 2}},
        {"text without a size", {{desk, {{"text-scaling-factor", Value(std::nan(""))}}}}, {false, false, 1}},
        {"dark, small text",
         {{look, {{"color-scheme", Value(1U)}}}, {desk, {{"text-scaling-factor", Value(0.5)}}}},
         {true, false, 1}},
        {"keys in the wrong namespace",
         {{look, {{"text-scaling-factor", Value(2.0)}}}, {desk, {{"color-scheme", Value(1U)}}}},
         {false, false, 1}},
        {"dark again", darkSettings, {true, false, 1}},
        {"values of the wrong type",
         {{look,
           {{"color-scheme", Value("dark")}, {"contrast", Value(true)}, {"reduced-motion", Value(true)}}},
          {desk, {{"enable-animations", Value(0U)}}}},
         {false, false, 1}},
    };
    for (const auto& [name, settings, expected] : cases) {
        SCOPED_TRACE(name);
        startPortal(settings, expected);
    }
}

TEST_F(PortalAppearanceTest, AppliesSettingChanges)
{
    startPortal({}, {});
    // Sent by another connection directly to this one, bypassing the match rule.
    const auto impostor = sdbus::createSessionBusConnection();
    auto forged = createObject(*impostor, portal->object->getObjectPath())
                      ->createSignal(InterfaceName(settingsInterface), SignalName("SettingChanged"));
    forged << desk << "text-scaling-factor" << Value(1.25);
    forged.setDestination(bus.connection().getUniqueName());
    forged.send();
    impostor->requestName(ServiceName("test.Flush")); // Returns after the bus has forwarded the signal.
    portal->change(look, "color-scheme", Value(1U));
    portal->change(look, "contrast", Value(1U));
    portal->change(look, "contrast", Value(0U));
    portal->change(look, "color-scheme", Value("light")); // Wrong type.
    portal->change(desk, "color-scheme", Value(2U));      // Wrong namespace.
    portal->change(desk, "text-scaling-factor", Value(1.5));
    portal->change(look, "color-scheme", Value(2U));
    portal->change(desk, "enable-animations", Value(false));
    EXPECT_THAT(observed(6), ElementsAre(Appearance{true, false, 1}, Appearance{true, false, 1, true},
                                         Appearance{true, false, 1}, Appearance{true, false, 1.5},
                                         Appearance{false, false, 1.5}, Appearance{false, true, 1.5}));
}

TEST_F(PortalAppearanceTest, FindsARunningPortalAndKeepsItsSettingsUntilAnotherStarts)
{
    startPortal(darkSettings, {true, false, 1});
    Platform::Linux::Bus::PortalAppearance late(bus, work);
    observe(late);
    EXPECT_THAT(observed(1), ElementsAre(Appearance{true, false, 1}));
    portal.reset();
    EXPECT_EQ(late.current(), (Appearance{true, false, 1}));
    EXPECT_EQ(appearance.current(), late.current());
    portal.emplace(Settings{{desk, {{"text-scaling-factor", Value(2.0)}}}});
    EXPECT_THAT(observed(2), ElementsAre(Appearance{false, false, 2}, Appearance{false, false, 2}));
}

TEST_F(PortalAppearanceTest, IgnoresEarlyChangesAndTheLateReplyOfAFormerPortal)
{
    const FakePortal former(darkSettings);
    Platform::Linux::Bus::PortalAppearance second(bus, work); // Its request waits in the socket of `former`.
    observe(second);
    former.peer->releaseName(ServiceName("org.freedesktop.portal.Desktop"));
    portal.emplace(Settings{{look, {{"contrast", Value(1U)}}}});
    portal->change(look, "contrast", Value(1U)); // Included in the reply.
    const Appearance initial{false, false, 1, true};
    EXPECT_THAT(observed(2), ElementsAre(initial, initial));
    while (processPending(*former.peer)) {
    }
    former.peer->requestName(ServiceName("test.Flush")); // Returns after the bus has forwarded the reply.
    portal->change(look, "contrast", Value(0U));
    EXPECT_THAT(observed(2), ElementsAre(Appearance(), Appearance()));
}

} // namespace
