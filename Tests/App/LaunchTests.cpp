#include "App/Launch.h"
#include "App/LaunchOptions.h"
#include "Core/Constants.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"
#include "Tests/App/TinyDevice.h"

#include <QGuiApplication>
#include <QIcon>
#include <QQuickItem>
#include <QQuickWindow>
#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace Platform;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

QQuickWindow* visibleWindow()
{
    for (QWindow* window : QGuiApplication::topLevelWindows()) {
        if (window->isVisible())
            return qobject_cast<QQuickWindow*>(window);
    }
    return nullptr;
}

/// What a test does in the event loop as soon as `isDue()`.
struct Step {
    const char* name;
    std::function<bool()> isDue;
    std::function<void()> run;
};

/// Runs `steps` one after the other, then quits the event loop.
class StepRunner {
public:
    StepRunner(const EventLoop& loop, std::vector<Step> steps) : m_loop(loop), m_steps(std::move(steps))
    {
        wait();
    }

private:
    void wait()
    {
        m_timer = m_loop.timers.scheduledTimer(5ms, [this] { runIfDue(); });
    }
    void runIfDue()
    {
        const Step& step = m_steps.at(m_next);
        if (!step.isDue()) {
            constexpr int maximumTries = 4000;
            if (++m_tries < maximumTries)
                return wait();
            ADD_FAILURE() << step.name;
            return m_loop.quit();
        }
        m_tries = 0;
        step.run();
        ++m_next < m_steps.size() ? wait() : m_loop.quit();
    }

    const EventLoop m_loop;
    std::vector<Step> m_steps;
    std::size_t m_next = 0;
    int m_tries = 0;
    std::unique_ptr<Timer> m_timer;
};

/// The only test that installs the services: they stay installed until the process ends.
TEST(LaunchTest, RunsOnAnotherDeviceImplementation)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    char name[] = "launch-tests";
    char* arguments[] = {name, nullptr};
    int argumentCount = 1;
    TinyDevice* device = nullptr;
    std::unique_ptr<StepRunner> runner;
    int stopCount = 0;
    const auto settingsSwitch = [] {
        const QQuickWindow* const window = visibleWindow();
        return window != nullptr ? window->findChild<QQuickItem*>("shell.settings.allowNotifications")
                                 : nullptr;
    };
    const auto steps = [&](const EventLoop& loop) {
        return std::vector<Step>{
            {"first", [] { return true; },
             [&] {
                 EXPECT_TRUE(device->hasWindow);
                 EXPECT_EQ(visibleWindow(), nullptr) << "before the appearance is known";
                 device->reportedAppearance.answerWith({.isDark = true});
                 EXPECT_NE(visibleWindow(), nullptr);
                 device->registerForRemoteNotifications();
             }},
            {"token",
             [&] { return !device->network.requests.empty() && !QGuiApplication::windowIcon().isNull(); },
             [&] {
                 EXPECT_TRUE(device->isStarted);
                 EXPECT_FALSE(device->notifications.delegate.expired());
                 EXPECT_EQ(QGuiApplication::desktopFileName(), "com.example.tiny");
                 EXPECT_THAT(device->log.takeLines(), Contains("Configuration manager initialized"));
                 const auto& suite = device->defaults.fakeSuite(Core::Constants::appGroupSuiteName).values;
                 EXPECT_TRUE(suite.contains(std::string(Core::Constants::SnapshotKeys::configSnapshot)));
                 ASSERT_EQ(device->network.requests.size(), 1U);
                 EXPECT_THAT(device->network.requests.front().url, HasSubstr("https://mdm.example.com/"));
                 EXPECT_THAT(device->network.requests.front().url, HasSubstr("DEV-1"));

                 device->delegate()->didFailToRegisterForRemoteNotifications(Error{});
                 EXPECT_THAT(device->log.takeLines(), Contains(HasSubstr("registration failed")));
                 for (const bool isWritable : {true, false}) {
                     device->defaults.fakeStandard().isWritable = isWritable;
                     device->delegate()->didReceiveRemoteNotification(
                         {}, [=](auto, bool isStored) { EXPECT_EQ(isStored, isWritable); });
                 }
                 device->notifications.status = AuthorizationStatus::denied;
                 device->open(Application::openSettingsURLString);
             }},
            {"settings", [&] { return settingsSwitch() != nullptr; },
             [&] {
                 const QQuickItem* const sheet = visibleWindow()->findChild<QQuickItem*>("shell.settings");
                 EXPECT_LT(sheet->childItems().front()->property("color").value<QColor>().lightness(), 50);
                 EXPECT_EQ(settingsSwitch()->property("isOn"), false);
                 // The user has changed the permission in another program.
                 device->notifications.status = AuthorizationStatus::authorized;
                 Q_EMIT qGuiApp->applicationStateChanged(Qt::ApplicationInactive);
                 Q_EMIT qGuiApp->applicationStateChanged(Qt::ApplicationActive);
                 EXPECT_EQ(settingsSwitch()->property("isOn"), true);
                 EXPECT_FALSE(device->activity.front());
                 EXPECT_FALSE(device->activity.at(device->activity.size() - 2));
                 EXPECT_TRUE(device->activity.back());
                 visibleWindow()->close();
             }},
            {"window released", [&] { return !device->hasWindow; },
             [&, loop] {
                 EXPECT_TRUE(QGuiApplication::topLevelWindows().isEmpty());
                 // As at the first launch where no portal runs.
                 device->reportedAppearance.answer.reset();
                 device->store.removeObject("Appearance");
                 loop.activate();
                 loop.activate();
                 loop.mainQueue.async(
                     [] { EXPECT_EQ(visibleWindow(), nullptr) << "waits for the appearance"; });
             }},
            {"window again", [] { return visibleWindow() != nullptr; },
             [&, loop] {
                 EXPECT_TRUE(device->hasWindow);
                 EXPECT_TRUE(device->store.object("Appearance").has_value());
                 // It is closed and at once opened again.
                 loop.activate();
                 visibleWindow()->close();
             }},
            {"last", [] { return true; },
             [&] { EXPECT_TRUE(device->hasWindow && visibleWindow() != nullptr); }}};
    };

    const int exitCode = App::launch(
        argumentCount, arguments, DeviceOptions(), [&](const EventLoop& loop, const DeviceStrings&) {
            auto made = std::make_unique<TinyDevice>(loop);
            device = made.get();
            device->onStop = [&] { ++stopCount; };
            device->defaults.deliver(
                PropertyList::Dictionary{{"device_id", "DEV-1"}, {"base_domain", "https://mdm.example.com"}});
            loop.mainQueue.async([&, loop] { runner = std::make_unique<StepRunner>(loop, steps(loop)); });
            return std::unique_ptr<Device>(std::move(made));
        });

    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(stopCount, 1);
}

TEST(LaunchTest, StringsOfTheDeviceAreTranslated)
{
    ::setenv("LANGUAGE", "de", 1);
    char name[] = "launch-tests";
    char* arguments[] = {name, nullptr};
    int argumentCount = 1;
    EXPECT_EQ(App::launch(argumentCount, arguments, DeviceOptions(),
                          [](const EventLoop&, const DeviceStrings& strings) {
                              EXPECT_THAT((std::vector{strings.openAction, strings.pushDescription,
                                                       strings.pushTurnedOff, strings.pushFromThisDevice}),
                                          ElementsAre("Öffnen", HasSubstr("Organisation"), "Deaktiviert",
                                                      "Dieses Gerät selbst"));
                              return unavailable;
                          }),
              unavailable);
}

TEST(CommandLineTest, OptionsAreParsedAndRepeatedForTheBackground)
{
    struct Case {
        std::vector<std::string> arguments;
        PushSource push = PushSource::automatic;
        bool isLoggingToStandardError = false;
        bool isInBackground = false;
    };
    const Case cases[] = {
        {{}},
        {{"--push", "auto"}},
        {{"--push", "local"}, PushSource::local},
        {{"--push=off"}, PushSource::off},
        {{"--log-stderr"}, PushSource::automatic, true},
        {{"--background"}, PushSource::automatic, false, true},
        {{"--dbus-activated"}, PushSource::automatic, false, true},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        std::vector<std::string> words{"app"};
        words.insert(words.end(), row.arguments.begin(), row.arguments.end());
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        const int count = static_cast<int>(arguments.size());
        const auto parsed = App::parseCommandLine(count, arguments.data());
        const auto& options = std::get<DeviceOptions>(parsed);
        EXPECT_EQ(options.push, row.push);
        EXPECT_EQ(options.isLoggingToStandardError, row.isLoggingToStandardError);
        EXPECT_EQ(options.isInBackground, row.isInBackground);
        std::vector<std::string> again = row.arguments;
        if (!row.isInBackground)
            again.emplace_back("--background");
        EXPECT_EQ(App::backgroundArguments(count, arguments.data(), options), again);
    }
}

} // namespace
