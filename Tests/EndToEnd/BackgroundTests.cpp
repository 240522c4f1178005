#include "Platform/Linux/LocalPushService.h"
#include "Tests/EndToEnd/ProgramTest.h"
#include "Tools/Backend/TestBackend.h"

#include <fmt/format.h>

#include <csignal>
#include <memory>

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

class BackgroundTest : public ProgramTest {
protected:
    using ProgramTest::ProgramTest;

    [[nodiscard]] std::unique_ptr<ChildProcess> startInBackground(const std::string& push = "off") const
    {
        return startUntil(ready, {"--log-stderr", "--push", push, "--background"});
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
    allowNotifications();
    ASSERT_TRUE(application->waitForLine("Remote notifications registered"));
    for (const int version : {2, 3}) {
        SCOPED_TRACE(version);
        window.close();
        window.waitUntilGone("dashboard.content");
        EXPECT_EQ(push(), "ok");
        device.replacePolicy(fmt::format(R"({{"device_id": "DEV-{}"}})", version));
        EXPECT_TRUE(application->waitForLine(fmt::format("Configuration updated - v{}", version)));
        launchAgain();
        window.waitFor("dashboard.content");
        EXPECT_EQ(push(), "ok");
    }
    EXPECT_EQ(runningProcess(), application->processId());
    EXPECT_EQ(application->end(), 0);
}

TEST_F(BackgroundTest, InstanceWithoutDisplayMakesRoomForALaunchThatStays)
{
    // The last one is the display of a session that has ended.
    for (const char* display : {"", ":987"}) {
        SCOPED_TRACE(display);
        removeDisplay();
        device.setEnvironment("DISPLAY", display);
        device.setEnvironment("QT_QPA_GENERIC_PLUGINS",
                              ""); // One process has the socket of the window driver.
        device.replacePolicy(R"({"device_id": "DEV-1"})");
        const auto unseen = startInBackground();
        device.setEnvironment("QT_QPA_GENERIC_PLUGINS", "QuorvaneWindowDriver");
        device.setEnvironment("QT_QPA_PLATFORM", "offscreen");
        unseen->signal(SIGSTOP);
        const auto seen = device.startApplication();
        EXPECT_EQ(seen->waitForExit(1s), std::nullopt) << "a slow device";
        unseen->signal(SIGCONT);
        EXPECT_EQ(unseen->waitForExit(), 0);
        ASSERT_TRUE(seen->waitForLine(ready)) << testing::PrintToString(seen->lines());
        EXPECT_EQ(runningProcess(), seen->processId());
        const DrivenWindow window = device.window();
        window.waitFor("welcome.getStarted");
        window.close();
        window.waitUntilGone("welcome.getStarted");
        device.replacePolicy(R"({"device_id": "DEV-2"})");
        // Each start made a version.
        EXPECT_TRUE(
            seen->waitForLine(*display == 0 ? "Configuration updated - v3" : "Configuration updated - v6"));
        EXPECT_EQ(seen->end(), 0);
    }
}

/// Session bus, autostart and systemd may all start it at login.
TEST_F(BackgroundTest, LaterStartsInTheBackgroundEndSilently)
{
    removeDisplay();
    const auto first = startInBackground();
    for (const char* option : {"--background", "--dbus-activated"}) {
        const auto later = device.startApplication({"--log-stderr", "--push", "off", option});
        EXPECT_EQ(later->waitForExit(), 0);
        EXPECT_THAT(later->lines(), IsEmpty());
    }
    EXPECT_EQ(runningProcess(), first->processId());
}

/// A build folder with an app that can be replaced.
class Installation {
public:
    Installation()
    {
        fs::create_directory(programs.path("App"));
        install();
        fs::create_directory_symlink(fs::path(QV_PROGRAMS) / "Tools", programs.path("Tools"));
    }
    /// As a package manager does: renames a complete file into place.
    void install() const
    {
        fs::copy_file(fs::path(QV_PROGRAMS) / "App/quorvane-mdm", programs.path("App/next"));
        fs::rename(programs.path("App/next"), program());
    }
    [[nodiscard]] fs::path program() const { return programs.path("App/quorvane-mdm"); }

    const ThrowawayDevice programs{QV_PROGRAMS};
};

class UpgradeTest : protected Installation, public BackgroundTest {
protected:
    UpgradeTest() : BackgroundTest(programs.path("")) {}
};

TEST_F(UpgradeTest, RestartsWithoutAWindowOnceNothingIsLost)
{
    TestBackend backend{{.folder = device.path("")}};
    const auto replacePolicy = [&](std::string_view identifier) {
        device.replacePolicy(fmt::format(R"({{"base_domain": "{}", "device_id": "{}", "api_key": "k"}})",
                                         backend.baseURL(), identifier));
    };
    device.setEnvironment("SSL_CERT_FILE", backend.certificateAuthority());
    device.setEnvironment("SSLKEYLOGFILE", device.path("session-keys"));
    replacePolicy("DEV-1");
    const auto application = startInBackground("local");
    EXPECT_EQ(qvctlJSON({"status"}).at("isOutdated"), false);
    launchAgain();
    backend.setReply("*", {.delay = 6s});
    allowNotifications();
    ASSERT_TRUE(application->waitForLine("Remote notifications registered"));
    install();
    ASSERT_TRUE(application->waitForLine("was replaced by another version or removed"));
    EXPECT_EQ(qvctlJSON({"status"}).at("isOutdated"), true);
    EXPECT_THAT(qvctl({"doctor", "--offline"}).output, HasSubstr("warning  app.running"));
    const DrivenWindow window = device.window();
    window.close();
    EXPECT_FALSE(application->waitForLine("starting up", 3s)) << "in the middle of an upload";
    ASSERT_TRUE(application->waitForLine("Device token uploaded"));
    EXPECT_FALSE(fs::exists(device.path("session-keys"))) << "they decrypt recorded uploads";
    ASSERT_TRUE(application->waitForLine("starting up"));
    ASSERT_TRUE(application->waitForLine(ready));
    window.waitUntilGone("dashboard.content");
    EXPECT_EQ(push(), "ok");
    EXPECT_EQ(fs::read_symlink(fmt::format("/proc/{}/exe", application->processId())), program());
    EXPECT_EQ(qvctlJSON({"status"}).at("isOutdated"), false);
    replacePolicy("DEV-2");
    EXPECT_TRUE(application->waitForLine("Configuration updated - v3")) << "each start applies the policy";
    EXPECT_EQ(application->end(), 0);
}

} // namespace
