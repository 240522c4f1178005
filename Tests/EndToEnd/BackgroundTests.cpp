#include "Platform/Linux/LocalPushService.h"
#include "Tests/EndToEnd/ProgramTest.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <thread>

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* ready = "Configuration manager initialized";

class BackgroundTest : public ProgramTest {
protected:
    [[nodiscard]] std::unique_ptr<ChildProcess> startInBackground(const std::string& push = "off") const
    {
        auto application = device.startApplication({"--log-stderr", "--push", push, "--background"});
        EXPECT_TRUE(application->waitForLine(ready));
        return application;
    }
    /// As the user launches the app while another instance runs.
    void launchAgain() const
    {
        const auto launch = device.startApplication();
        EXPECT_EQ(launch->waitForExit(), 0);
        EXPECT_THAT(launch->lines(), testing::ElementsAre(HasSubstr("already running")));
    }
    [[nodiscard]] std::string push() const
    {
        return Platform::Linux::sendToLocalPushService(device.pushSocket(), R"({"aps": {"alert": "Hello"}})");
    }
    [[nodiscard]] std::int64_t runningProcess() const
    {
        return qvctlJSON({"status"}).at("processId").as_int64();
    }
    void removeDisplay()
    {
        for (const char* name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"})
            device.setEnvironment(name, "");
    }
};

TEST_F(BackgroundTest, LaunchOpensTheWindowOfTheSameProcess)
{
    device.replacePolicy(R"({"device_id": "DEV-1"})");
    const auto application = startInBackground("local");
    const DrivenWindow window = device.window();
    EXPECT_EQ(qvctlJSON({"status"}).at("configVersion"), 1);
    window.waitUntilGone("welcome.getStarted");

    launchAgain();
    EXPECT_EQ(runningProcess(), application->processId());
    window.tap("welcome.getStarted");
    window.tap("shell.allow");
    ASSERT_TRUE(application->waitForLine("Remote notifications registered"));
    for (const bool isFirst : {true, false}) {
        SCOPED_TRACE(isFirst);
        window.close();
        window.waitUntilGone("dashboard.content");
        EXPECT_EQ(push(), "ok");
        device.replacePolicy(isFirst ? R"({"device_id": "DEV-2"})" : R"({"device_id": "DEV-3"})");
        EXPECT_TRUE(
            application->waitForLine(isFirst ? "Configuration updated - v2" : "Configuration updated - v3"));
        launchAgain();
        window.waitFor("dashboard.content");
        EXPECT_EQ(push(), "ok");
    }
    EXPECT_EQ(runningProcess(), application->processId());
    application->signal(SIGTERM);
    EXPECT_EQ(application->waitForExit(), 0);
}

TEST_F(BackgroundTest, LaunchedAppEndsWithItsWindow)
{
    const auto application = device.startApplication();
    const DrivenWindow window = device.window();
    window.waitFor("welcome.getStarted");
    window.close();
    EXPECT_EQ(application->waitForExit(), 0);
}

TEST_F(BackgroundTest, InstanceWithoutDisplayMakesRoomForALaunchThatStays)
{
    removeDisplay();
    device.setEnvironment("QT_QPA_GENERIC_PLUGINS", ""); // One process has the socket of the window driver.
    device.replacePolicy(R"({"device_id": "DEV-1"})");
    const auto unseen = startInBackground();
    device.setEnvironment("QT_QPA_GENERIC_PLUGINS", "QuorvaneWindowDriver");
    device.setEnvironment("QT_QPA_PLATFORM", "offscreen");
    const auto seen = device.startApplication();
    EXPECT_EQ(unseen->waitForExit(), 0);
    ASSERT_TRUE(seen->waitForLine(ready));
    EXPECT_EQ(runningProcess(), seen->processId());
    const DrivenWindow window = device.window();
    window.waitFor("welcome.getStarted");
    window.close();
    window.waitUntilGone("welcome.getStarted");
    device.replacePolicy(R"({"device_id": "DEV-2"})");
    EXPECT_TRUE(seen->waitForLine("Configuration updated - v3")); // The second start was v2.
}

/// Session bus, autostart and systemd may all start it at login.
TEST_F(BackgroundTest, StartsInTheBackgroundMakeOneProcess)
{
    removeDisplay();
    std::vector<std::unique_ptr<ChildProcess>> starts;
    for (const char* option : {"--background", "--dbus-activated", "--background"})
        starts.push_back(device.startApplication({"--log-stderr", "--push", "off", option}));
    const auto hasEnded = [](const auto& start) { return start->waitForExit(5s).has_value(); };
    const auto ended = std::stable_partition(starts.begin(), starts.end(), hasEnded);
    ASSERT_EQ(starts.end() - ended, 1);
    EXPECT_TRUE((*ended)->waitForLine(ready));
    EXPECT_EQ(runningProcess(), (*ended)->processId());
    for (auto start = starts.begin(); start != ended; ++start) {
        EXPECT_EQ((*start)->waitForExit(), 0);
        EXPECT_THAT((*start)->lines(), IsEmpty());
    }
}

} // namespace
