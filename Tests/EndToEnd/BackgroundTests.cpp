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

constexpr const char* ready = "Configuration manager initialized";
constexpr const char* outdated = "was replaced by another version or removed";

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
        seen->signal(SIGTERM);
        EXPECT_EQ(seen->waitForExit(), 0);
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

/// The app installed in a folder of its own, where it can be replaced.
class UpgradeTest : public testing::Test {
protected:
    UpgradeTest()
    {
        fs::create_directory(programs.path("App"));
        install();
        fs::create_directory_symlink(fs::path(QV_PROGRAMS) / "Tools", programs.path("Tools"));
        device.emplace(programs.path(""));
        device->setEnvironment("SSL_CERT_FILE", device->path("authority.pem"));
        backend.emplace(TestBackend::Options{.folder = device->path("")});
        device->replacePolicy(policy("DEV-1"));
    }
    [[nodiscard]] std::string policy(std::string_view identifier) const
    {
        return fmt::format(R"({{"base_domain": "{}", "device_id": "{}", "api_key": "k"}})",
                           backend->baseURL(), identifier);
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
    [[nodiscard]] boost::json::value isOutdated() const
    {
        const auto process = device->startConsole({"status", "--json"});
        process->waitForExit();
        return boost::json::parse(process->lines().back()).at("isOutdated");
    }
    [[nodiscard]] std::string runningProgram() const
    {
        return fs::read_symlink(fmt::format("/proc/{}/exe", application->processId()));
    }
    [[nodiscard]] std::string push() const
    {
        return Platform::Linux::sendToLocalPushService(device->pushSocket(),
                                                       R"({"aps": {"alert": "Hello"}})");
    }
    [[nodiscard]] std::size_t countOf(std::string_view text) const
    {
        const auto& lines = application->lines();
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [=](const auto& line) {
            return line.find(text) != std::string::npos;
        }));
    }

    ThrowawayDevice programs{QV_PROGRAMS};
    std::optional<ThrowawayDevice> device;
    std::optional<TestBackend> backend;
    std::unique_ptr<ChildProcess> application;
};

TEST_F(UpgradeTest, RestartsWithoutAWindowOnceTheNewProgramStarts)
{
    application = device->startApplication({"--log-stderr", "--push", "local", "--background"});
    ASSERT_TRUE(application->waitForLine(ready));
    EXPECT_EQ(isOutdated(), false);
    installBroken("#!/bin/sh\nexec sleep 60\n");
    ASSERT_TRUE(application->waitForLine(outdated));
    EXPECT_EQ(isOutdated(), true);
    EXPECT_FALSE(application->waitForLine("starting up", 4s)) << "the new program hangs";
    device->replacePolicy(policy("DEV-2"));
    EXPECT_TRUE(application->waitForLine("Configuration updated - v2", 5s)) << "the old version still works";
    installBroken("no program");
    EXPECT_FALSE(application->waitForLine("starting up", 4s)) << "the new program does not start";
    EXPECT_FALSE(push().empty()) << "the old version still works";
    install();
    ASSERT_TRUE(application->waitForLine("starting up"));
    ASSERT_TRUE(application->waitForLine(ready));
    EXPECT_EQ(runningProgram(), program());
    EXPECT_EQ(isOutdated(), false);
    EXPECT_EQ(countOf(outdated), 1U);
    device->replacePolicy(policy("DEV-3"));
    EXPECT_TRUE(application->waitForLine("Configuration updated - v4")) << "each start applies the policy";
    EXPECT_EQ(application->waitForExit(0s), std::nullopt) << "the same process";
    application->signal(SIGTERM);
    EXPECT_EQ(application->waitForExit(), 0);
}

TEST_F(UpgradeTest, WaitsForTheWindowAndForAnUpload)
{
    application = device->startApplication({"--log-stderr", "--push", "local", "--background"});
    ASSERT_TRUE(application->waitForLine(ready));
    EXPECT_EQ(device->startApplication()->waitForExit(), 0);
    const DrivenWindow window = device->window();
    backend->setReply("*", {.delay = 6s});
    window.tap("welcome.getStarted");
    window.tap("shell.allow");
    ASSERT_TRUE(application->waitForLine("Remote notifications registered"));
    install();
    ASSERT_TRUE(application->waitForLine(outdated));
    const auto doctor = device->startConsole({"doctor", "--offline"});
    EXPECT_TRUE(doctor->waitForLine("warning  app.running"));
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
