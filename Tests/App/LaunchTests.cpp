#include "App/Launch.h"
#include "App/LaunchOptions.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"
#include "Tests/App/TinyDevice.h"
#include "Tests/Platform/Desktop/WindowChecks.h"

#include <QGuiApplication>
#include <QIcon>
#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>

using namespace Platform;
using namespace std::chrono_literals;
using namespace testing;

namespace {

QQuickWindow* visibleWindow()
{
    for (QWindow* window : QGuiApplication::topLevelWindows()) {
        if (window->isVisible())
            return qobject_cast<QQuickWindow*>(window);
    }
    return nullptr;
}

QQuickItem* settingsSwitch()
{
    return visibleWindow()->findChild<QQuickItem*>("shell.settings.allowNotifications");
}

/// What the user and the device do while the app runs.
void useApp(TinyDevice& device, const EventLoop& loop)
{
    EXPECT_THAT(device.activity, ElementsAre(false));
    ASSERT_TRUE(waitFor([] { return !QGuiApplication::windowIcon().isNull(); }));
    EXPECT_EQ(QGuiApplication::desktopFileName(), "com.example.tiny");

    device.delegate()->didFailToRegisterForRemoteNotifications(Error{});
    EXPECT_THAT(device.log.takeLines(), Contains(HasSubstr("registration failed")));
    for (const bool isWritable : {true, false}) {
        device.defaults.fakeStandard().isWritable = isWritable;
        device.delegate()->didReceiveRemoteNotification(
            {}, [=](auto, bool isStored) { EXPECT_EQ(isStored, isWritable); });
    }

    device.notifications.status = AuthorizationStatus::denied;
    device.open(Application::openSettingsURLString);
    ASSERT_TRUE(waitFor([] { return settingsSwitch() != nullptr; }));
    const QQuickItem* const sheet = visibleWindow()->findChild<QQuickItem*>("shell.settings");
    EXPECT_LT(sheet->childItems().front()->property("color").value<QColor>().lightness(), 50);
    EXPECT_EQ(settingsSwitch()->property("isOn"), false);
    // The user has changed the permission in another program.
    device.notifications.status = AuthorizationStatus::authorized;
    device.activity.clear();
    for (const auto state : {Qt::ApplicationInactive, Qt::ApplicationActive})
        Q_EMIT qGuiApp->applicationStateChanged(state);
    EXPECT_EQ(settingsSwitch()->property("isOn"), true);
    EXPECT_THAT(device.activity, ElementsAre(false, true));

    // As at the first launch, with a portal and where none runs.
    for (const bool isAnswered : {true, false}) {
        visibleWindow()->close();
        ASSERT_TRUE(waitFor([&] { return !device.hasWindow; }));
        EXPECT_TRUE(QGuiApplication::topLevelWindows().isEmpty());
        device.reportedAppearance.answer.reset();
        device.store.removeObject("Appearance");
        loop.activate();
        loop.activate();
        loop.mainQueue.async([&] {
            EXPECT_EQ(visibleWindow(), nullptr) << "waits for the appearance";
            if (isAnswered)
                device.reportedAppearance.answerWith({});
            EXPECT_EQ(visibleWindow() != nullptr, isAnswered);
        });
        ASSERT_TRUE(waitFor([] { return visibleWindow() != nullptr; }));
        EXPECT_TRUE(device.store.object("Appearance").has_value());
    }
    // It is closed and at once opened again.
    loop.activate();
    visibleWindow()->close();
    ASSERT_TRUE(waitFor([] { return visibleWindow() != nullptr; }));
    EXPECT_TRUE(device.hasWindow);
}

/// The only test that installs the services: they stay installed until the process ends.
TEST(LaunchTest, RunsOnAnotherDeviceImplementation)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    ::setenv("LANGUAGE", "de", 1);
    int stopCount = 0;
    std::unique_ptr<Timer> start;
    const auto makeDevice = [&](const EventLoop& loop, const DeviceStrings& strings) {
        EXPECT_THAT((std::vector{strings.openAction, strings.pushDescription, strings.pushTurnedOff,
                                 strings.pushFromThisDevice}),
                    ElementsAre("Öffnen", HasSubstr("Organisation"), "Deaktiviert", "Dieses Gerät selbst"));
        auto device = std::make_unique<TinyDevice>(loop);
        device->onStop = [&] { ++stopCount; };
        device->store.set("Appearance", PropertyList::Dictionary{{"isDark", true}});
        start = loop.timers.scheduledTimer(0ms, [&made = *device, loop] {
            useApp(made, loop);
            loop.quit();
        });
        return std::unique_ptr<Device>(std::move(device));
    };
    char name[] = "launch-tests";
    char* arguments[] = {name, nullptr};
    int argumentCount = 1;
    EXPECT_EQ(App::launch(argumentCount, arguments, DeviceOptions(), makeDevice), success);
    EXPECT_EQ(stopCount, 1);
}

TEST(CommandLineTest, OptionsAreParsedAndRepeatedForTheBackground)
{
    const std::pair<std::vector<std::string>, DeviceOptions> cases[] = {
        {{"app"}, {}},
        {{"app", "--push", "auto"}, {}},
        {{"app", "--push", "local", "--log-stderr"},
         {.push = PushSource::local, .isLoggingToStandardError = true}},
        {{"app", "--push=off", "--background"}, {.push = PushSource::off, .isInBackground = true}},
        {{"app", "--dbus-activated"}, {.isInBackground = true}},
    };
    for (auto [words, expected] : cases) {
        SCOPED_TRACE(PrintToString(words));
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        const int count = static_cast<int>(arguments.size());
        const auto options = std::get<DeviceOptions>(App::parseCommandLine(count, arguments.data()));
        EXPECT_THAT(options,
                    FieldsAre(_, expected.push, expected.isLoggingToStandardError, expected.isInBackground));
        std::vector<std::string> again(words.begin() + 1, words.end());
        if (!expected.isInBackground)
            again.emplace_back("--background");
        EXPECT_EQ(App::backgroundArguments(count, arguments.data(), options), again);
    }
}

} // namespace
