#include "Platform/Linux/LocalPushService.h"
#include "Tests/EndToEnd/ProgramTest.h"
#include "Tools/Backend/TestBackend.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <thread>

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

constexpr const char* outdated = "was replaced by another version or removed";

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
    /// Installs something that does not start, such as a program whose libraries are missing.
    void installBroken(const std::string& content) const
    {
        programs.write(programs.path("App/next"), content);
        fs::permissions(programs.path("App/next"), fs::perms::owner_all);
        fs::rename(programs.path("App/next"), program());
    }
    [[nodiscard]] fs::path program() const { return programs.path("App/quorvane-mdm"); }

    const ThrowawayDevice programs{QV_PROGRAMS};
};

class UpgradeTest : protected Installation, public BackgroundTest {
protected:
    UpgradeTest() : BackgroundTest(programs.path(""))
    {
        device.setEnvironment("SSL_CERT_FILE", backend.certificateAuthority());
        replacePolicy("DEV-1");
        application = startInBackground("local");
    }
    void replacePolicy(std::string_view identifier) const
    {
        device.replacePolicy(fmt::format(R"({{"base_domain": "{}", "device_id": "{}", "api_key": "k"}})",
                                         backend.baseURL(), identifier));
    }
    [[nodiscard]] bool isOutdated() const { return qvctlJSON({"status"}).at("isOutdated").as_bool(); }
    [[nodiscard]] fs::path runningProgram() const
    {
        return fs::read_symlink(fmt::format("/proc/{}/exe", application->processId()));
    }

    TestBackend backend{{.folder = device.path("")}};
    std::unique_ptr<ChildProcess> application;
};

TEST_F(UpgradeTest, RestartsWithoutAWindowOnceTheNewProgramStarts)
{
    EXPECT_FALSE(isOutdated());
    installBroken("#!/bin/sh\nexec sleep 60\n");
    ASSERT_TRUE(application->waitForLine(outdated));
    EXPECT_TRUE(isOutdated());
    EXPECT_FALSE(application->waitForLine("starting up", 4s)) << "the new program hangs";
    replacePolicy("DEV-2");
    EXPECT_TRUE(application->waitForLine("Configuration updated - v2", 5s)) << "the old version still works";
    installBroken("no program");
    EXPECT_FALSE(application->waitForLine("starting up", 4s)) << "the new program does not start";
    EXPECT_FALSE(push().empty()) << "the old version still works";
    install();
    ASSERT_TRUE(application->waitForLine("starting up"));
    ASSERT_TRUE(application->waitForLine(ready));
    EXPECT_EQ(runningProgram(), program());
    EXPECT_FALSE(isOutdated());
    replacePolicy("DEV-3");
    EXPECT_TRUE(application->waitForLine("Configuration updated - v4")) << "each start applies the policy";
    EXPECT_EQ(application->waitForExit(0s), std::nullopt) << "the same process";
    EXPECT_EQ(application->end(), 0);
    const auto& lines = application->lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.find(outdated) != std::string::npos; }),
              1);
}

TEST_F(UpgradeTest, WaitsForTheWindowAndForAnUpload)
{
    launchAgain();
    backend.setReply("*", {.delay = 6s});
    allowNotifications();
    ASSERT_TRUE(application->waitForLine("Remote notifications registered"));
    install();
    ASSERT_TRUE(application->waitForLine(outdated));
    EXPECT_THAT(qvctl({"doctor", "--offline"}).output, HasSubstr("warning  app.running"));
    const DrivenWindow window = device.window();
    window.close();
    EXPECT_FALSE(application->waitForLine("starting up", 3s)) << "in the middle of an upload";
    ASSERT_TRUE(application->waitForLine("Device token uploaded"));
    ASSERT_TRUE(application->waitForLine("starting up"));
    ASSERT_TRUE(application->waitForLine(ready));
    window.waitUntilGone("dashboard.content");
    EXPECT_EQ(push(), "ok");
    EXPECT_EQ(runningProgram(), program());
}

} // namespace
