#include "App/Launch.h"
#include "Core/Constants.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Timer.h"
#include "Tests/App/TinyDevice.h"

#include <QGuiApplication>
#include <QIcon>
#include <QWindow>
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
using testing::HasSubstr;

namespace {

/// The only test that installs the services: they stay installed until the process ends.
TEST(LaunchTest, RunsOnAnotherDeviceImplementation)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    char name[] = "launch-tests";
    char* arguments[] = {name, nullptr};
    int argumentCount = 1;
    TinyDevice* device = nullptr;
    std::unique_ptr<Timer> next;
    std::vector<std::string> lines;
    std::vector<URLRequest> requests;
    bool isStored = false;
    bool isStarted = false;
    bool hasIcon = false;
    bool wasVisibleBefore = true;
    bool isVisibleAfter = false;
    const auto isWindowVisible = [] {
        return !QGuiApplication::topLevelWindows().isEmpty() &&
               QGuiApplication::topLevelWindows().front()->isVisible();
    };
    const auto observe = [&] {
        isStarted = device->isStarted;
        hasIcon = !QGuiApplication::windowIcon().isNull();
        lines = device->log.takeLines();
        requests = device->network.requests;
        isStored = device->defaults.fakeSuite(Core::Constants::appGroupSuiteName)
                       .values.contains(std::string(Core::Constants::SnapshotKeys::configSnapshot));
    };
    std::function<void(const EventLoop&, int)> waitForRequest = [&](const EventLoop& loop, int triesLeft) {
        next = loop.timers.scheduledTimer(10ms, [&, loop, triesLeft] {
            if (device->network.requests.empty() && triesLeft > 0)
                return waitForRequest(loop, triesLeft - 1);
            observe();
            loop.quit();
        });
    };

    const int exitCode = App::launch(
        argumentCount, arguments, DeviceOptions(), [&](const EventLoop& loop, const DeviceStrings&) {
            auto made = std::make_unique<TinyDevice>(loop);
            device = made.get();
            device->defaults.deliver(
                PropertyList::Dictionary{{"device_id", "DEV-1"}, {"base_domain", "https://mdm.example.com"}});
            loop.mainQueue.async([&] {
                wasVisibleBefore = isWindowVisible();
                device->reportedAppearance.answerWith({.isDark = true});
                isVisibleAfter = isWindowVisible();
                device->registerForRemoteNotifications();
            });
            constexpr int tries = 1000;
            waitForRequest(loop, tries);
            return std::unique_ptr<Device>(std::move(made));
        });

    EXPECT_EQ(exitCode, 0);
    EXPECT_FALSE(wasVisibleBefore) << "before the appearance is known";
    EXPECT_TRUE(isVisibleAfter);
    EXPECT_TRUE(isStarted);
    EXPECT_TRUE(hasIcon);
    EXPECT_THAT(lines, Contains("Configuration manager initialized"));
    EXPECT_TRUE(isStored);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_THAT(requests.front().url, HasSubstr("https://mdm.example.com/"));
    EXPECT_THAT(requests.front().url, HasSubstr("DEV-1"));
}

TEST(LaunchTest, ReturnsExitCodeFromMakeDevice)
{
    char name[] = "launch-tests";
    char* arguments[] = {name, nullptr};
    int argumentCount = 1;
    EXPECT_EQ(App::launch(argumentCount, arguments, DeviceOptions(),
                          [](const EventLoop&, const DeviceStrings&) { return unavailable; }),
              unavailable);
}

} // namespace
