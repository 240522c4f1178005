#include "Platform/Storage/FileDescriptor.h"
#include "Tests/EndToEnd/ProgramTest.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <regex>

using Platform::Storage::FileDescriptor;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

/// Returns the lines without their timestamps.
std::vector<std::string> withoutTimes(const std::vector<std::string>& lines)
{
    static const std::regex time("^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z ");
    std::vector<std::string> result;
    for (const std::string& line : lines)
        result.push_back(std::regex_replace(line, time, ""));
    return result;
}

TEST_F(ProgramTest, StartUpLogsInOrderAndExitsOnSIGTERM)
{
    device.replacePolicy(R"({"device_id": "DEV-1"})");
    const auto application = startUntil(ready);
    EXPECT_EQ(application->end(), 0);
    EXPECT_THAT(withoutTimes(application->lines()),
                ElementsAre("info com.quorvane.mdm general Quorvane MDM App starting up",
                            "info com.quorvane.mdm general Configuration updated - v1, apps: 0",
                            "info com.quorvane.mdm general Configuration manager initialized"));
}

TEST_F(ProgramTest, LaunchFailsWhileAnotherProgramHoldsTheLock)
{
    const auto file = device.path("data/quorvane-mdm/instance.lock");
    std::filesystem::create_directories(file.parent_path());
    struct Case {
        int command;
        const char* line;
    };
    // This process holds the lock; a signal from the launched app would end the test.
    const Case cases[] = {
        {F_OFD_SETLK, "in another container or on another machine"},
        {F_SETLK, "another program holds "},
    };
    for (const Case& row : cases) {
        const FileDescriptor held(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        struct flock lock {};
        lock.l_type = F_WRLCK;
        ASSERT_EQ(::fcntl(held.get(), row.command, &lock), 0);
        const auto launch = device.startApplication();
        EXPECT_EQ(launch->waitForExit(), 69);
        EXPECT_THAT(launch->lines(), ElementsAre(HasSubstr(row.line)));
        const auto status = qvctlJSON({"status"});
        EXPECT_EQ(status.at("isRunning").as_bool(), row.command == F_OFD_SETLK);
        EXPECT_TRUE(status.at("processId").is_null());
    }
    EXPECT_FALSE(qvctlJSON({"status"}).at("isRunning").as_bool());
}

TEST_F(ProgramTest, AppRunsWithoutAUsableStateFolder)
{
    device.write(device.path("data"), "a file where a folder should be");
    device.replacePolicy(R"({"device_id": "DEV-1"})");
    const auto application = startUntil("Cannot access App Group defaults");
    EXPECT_TRUE(application->waitForLine("Configuration updated - v1, apps: 0"));
    EXPECT_TRUE(application->waitForLine(ready));
}

TEST_F(ProgramTest, AppReportsUsageErrors)
{
    device.setEnvironment("QUORVANE_MANAGED_CONFIGURATION", "");
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"--no-such-option"}, "--no-such-option"},
        {{"--managed-configuration", ""}, "--managed-configuration needs a file name"},
        {{"--managed-configuration="}, "--managed-configuration: 1 required FILE missing"},
    };
    for (const auto& [arguments, reason] : cases) {
        const auto application = device.startApplication(arguments);
        EXPECT_EQ(application->waitForExit(), 64) << reason;
        EXPECT_THAT(application->lines(), ElementsAre(HasSubstr(reason), "Try quorvane-mdm --help."));
    }
    const Outcome lost = shell("cd $DEVICE && mkdir lost && cd lost && rmdir ../lost && "
                               "exec $PROGRAMS/App/quorvane-mdm --managed-configuration file");
    EXPECT_EQ(lost.exitCode, 64);
    EXPECT_THAT(lost.output, HasSubstr("use an absolute path"));
}

TEST_F(ProgramTest, ClosedStandardDescriptorsAreReplaced)
{
    const char* closing[] = {" <&-", " >&-", " 2>&-"};
    const auto watch = device.startConsole({"watch", "--json"});
    for (int closed = 1; closed < 8; ++closed) {
        std::string redirection;
        for (int descriptor = 0; descriptor < 3; ++descriptor)
            redirection += (closed >> descriptor & 1) != 0 ? closing[descriptor] : "";
        SCOPED_TRACE(redirection);
        device.replacePolicy(R"({"device_id": )" + std::to_string(closed) + "}");
        const auto application =
            device.startShell("exec $PROGRAMS/App/quorvane-mdm --log-stderr" + redirection);
        EXPECT_TRUE(watch->waitForLine("\"configVersion\":" + std::to_string(closed)));
        for (int descriptor = 0; descriptor < 3; ++descriptor) {
            const auto file = "/proc/" + std::to_string(application->processId()) + "/fd/";
            EXPECT_EQ(std::filesystem::read_symlink(file + std::to_string(descriptor)) == "/dev/null",
                      descriptor == 0 || (closed >> descriptor & 1) != 0)
                << descriptor;
        }
        EXPECT_EQ(application->end(), 0);
        EXPECT_EQ(shell("exec $QVCTL status" + redirection).exitCode, 0);
    }
}

TEST_F(ProgramTest, ForgetLeavesNoTraceOfTheAPIKey)
{
    device.replacePolicy(R"({"api_key": "canary-1"})");
    const auto application = startUntil("Configuration updated - v1");
    device.replacePolicy(R"({"api_key": "canary-2"})");
    ASSERT_TRUE(application->waitForLine("Configuration updated - v2"));
    const char* countTraces = "grep -rl canary $DEVICE/data | wc -l";
    EXPECT_NE(shell(countTraces).output, "0\n");
    device.write(device.suiteFile().string() + ".corrupt-2026", "canary");
    EXPECT_EQ(qvctl({"config", "clear"}).exitCode, 0);
    const Outcome outcome = qvctl({"config", "forget"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("Deleted the snapshot in"), Not(HasSubstr("still exists"))));
    EXPECT_EQ(shell(countTraces).output, "0\n");

    // The running app continues, and counts versions from 1.
    device.replacePolicy(R"({"api_key": "another"})");
    EXPECT_TRUE(application->waitForLine("Configuration updated - v1"));
    EXPECT_EQ(qvctlJSON({"snapshot", "--reveal"}).at("apiKey"), "another");
}

TEST_F(ProgramTest, EnvironmentAndFontsDecideTheLanguage)
{
    const char* english = "Your comprehensive Unified Endpoint Management solution";
    const char* german = "Ihre umfassende Lösung für Unified Endpoint Management";
    const auto noFonts = device.path("fonts.conf");
    device.write(noFonts, R"(<?xml version="1.0"?><fontconfig><dir>/nonexistent</dir></fontconfig>)");
    const struct {
        const char *language, *locale;
        bool hasFonts;
        const char* headline;
    } cases[] = {
        {"", "C.UTF-8", true, english},        {"", "en_US.UTF-8", true, english},
        {"", "de_AT.UTF-8", true, german},     {"xx:de", "fr_FR.UTF-8", true, german},
        {"ja", "ja_JP.UTF-8", false, english},
    };
    for (const auto& [language, locale, hasFonts, headline] : cases) {
        device.setEnvironment("LANGUAGE", language);
        device.setEnvironment("LC_ALL", locale);
        if (!hasFonts)
            device.setEnvironment("FONTCONFIG_FILE", noFonts);
        const auto application = device.startApplication();
        EXPECT_EQ(device.window().text("welcome.headline"), headline) << language << locale;
        EXPECT_EQ(application->end(), 0);
    }
}
TEST_F(ProgramTest, RevokedPermissionRefusesPushes)
{
    const auto application = startRegistered();
    device.write(device.path("payload.json"), R"({"aps": {"alert": "Hello"}})");
    const std::vector<std::string> push{"push", device.path("payload.json")};
    EXPECT_EQ(qvctl(push).exitCode, 0);
    EXPECT_EQ(qvctl({"privacy", "revoke", "notifications"}).exitCode, 0);
    const Outcome refused = qvctl(push);
    EXPECT_EQ(refused.exitCode, 69);
    EXPECT_THAT(refused.output, HasSubstr("the user does not allow notifications"));
    EXPECT_EQ(qvctlJSON({"status"}).at("historyCount"), 1);
}

} // namespace
