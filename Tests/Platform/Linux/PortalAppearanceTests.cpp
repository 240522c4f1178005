#include "Platform/Linux/PortalAppearance.h"

#include "Platform/AdapterLog.h"
#include "Platform/Linux/SessionBus.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>

TEST(PortalAppearanceTest, FollowsEachPortalAndNobodyElse)
{
    using Answer = std::map<std::string, std::map<std::string, sdbus::Variant>>;
    constexpr const char* settings = "org.freedesktop.portal.Settings";
    constexpr const char* look = "org.freedesktop.appearance";
    constexpr const char* desk = "org.gnome.desktop.interface";
    struct FakePortal {
        std::unique_ptr<sdbus::IConnection> peer = sdbus::createSessionBusConnection();
        std::unique_ptr<sdbus::IObject> object = createObject(*peer, "/org/freedesktop/portal/desktop");
    };
    std::optional<FakePortal> portal;
    const auto restart = [&](const Answer& answer) {
        portal.emplace().object->registerMethod("ReadAll").onInterface(settings).implementedAs(
            [=](const std::vector<std::string>& spaces) { return spaces.at(1) == desk ? answer : Answer(); });
        portal->object->finishRegistration();
        portal->peer->requestName("org.freedesktop.portal.Desktop");
    };
    RecordingUnifiedLog log;
    const Platform::AdapterLog adapterLog(log, "test");
    ManualScheduler::Queue work;
    Platform::Linux::SessionBus bus(adapterLog);
    Platform::Linux::PortalAppearance early(bus, work);
    std::vector<Platform::Appearance> seen;
    early.observe([&](const auto& appearance) { seen.push_back(appearance); });
    auto& own = bus.connection(); // Served here, so that everything comes in one order.
    const auto expect = [&](const std::vector<Platform::Appearance>& expected) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (; seen.size() < expected.size() && std::chrono::steady_clock::now() < end; work.runNext())
            static_cast<void>(portal->peer->processPendingRequest() || own.processPendingRequest());
        EXPECT_EQ(std::exchange(seen, {}), expected);
    };
    restart({});
    expect({{}});
    auto lie = createObject(own, portal->object->getObjectPath())->createSignal(settings, "SettingChanged");
    lie << desk << "text-scaling-factor" << sdbus::Variant(1.5);
    lie.setDestination(own.getUniqueName());
    lie.send();
    using Change = std::tuple<const char*, const char*, sdbus::Variant>;
    for (const auto& [space, key, value] :
         {Change(look, "color-scheme", 1U), Change(look, "color-scheme", "light"),
          Change(desk, "text-scaling-factor", 9.0), Change(look, "color-scheme", 2U),
          Change(desk, "enable-animations", false), Change(look, "color-scheme", 1U)})
        portal->object->emitSignal("SettingChanged").onInterface(settings).withArguments(space, key, value);
    expect({{true, false, 1}, {true, false, 2}, {false, false, 2}, {false, true, 2}, {true, true, 2}});
    restart({{look, {{"reduced-motion", 1U}}}, {desk, {{"color-scheme", 1U}, {"text-scaling-factor", 0.5}}}});
    expect({{false, true, 1}});
    Platform::Linux::PortalAppearance late(bus, work);
    late.observe([&](const auto& appearance) { seen.push_back(appearance); });
    expect({early.current()});
}
