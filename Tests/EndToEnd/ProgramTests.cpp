#include "Platform/Storage/FileDescriptor.h"
#include "Tests/EndToEnd/ProgramTest.h"

#include <fmt/format.h>

#include <fcntl.h>

using Platform::Storage::FileDescriptor;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TEST_F(ProgramTest, LaunchFailsWhileAnotherProgramHoldsTheLock)
{
    const auto file = device.path("data/quorvane-mdm/instance.lock");
    std::filesystem::create_directories(file.parent_path());
    // This process holds the lock; a signal from the launched app would end the test.
    const std::pair<int, const char*> cases[] = {{F_OFD_SETLK, "in another container or on another machine"},
                                                 {F_SETLK, "another program holds "}};
    for (const auto& [command, line] : cases) {
        const FileDescriptor held(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        struct flock lock {};
        lock.l_type = F_WRLCK;
        ASSERT_EQ(::fcntl(held.get(), command, &lock), 0);
        const auto launch = device.startApplication();
        EXPECT_EQ(launch->waitForExit(), 69);
        EXPECT_THAT(launch->lines(), ElementsAre(HasSubstr(line)));
        const auto status = qvctlJSON({"status"});
        EXPECT_EQ(status.at("isRunning").as_bool(), command == F_OFD_SETLK);
        EXPECT_TRUE(status.at("processId").is_null());
    }
}

TEST_F(ProgramTest, AppRunsWithoutAUsableStateFolder)
{
    device.write(device.path("data"), "a file where a folder should be");
    device.replacePolicy(R"({"device_id": "DEV-1"})");
    const auto application = startUntil("Cannot access App Group defaults");
    EXPECT_TRUE(application->waitForLine(ready));
}

/// The app cannot start a thread with a stack of that size. The backend accepts the first numbers of each
/// row, so its message names the last one.
TEST_F(ProgramTest, ProgramsReportErrorsOfTheirStart)
{
    checkAll("exec > /dev/null; export QUORVANE_MANAGED_CONFIGURATION=; "
             "PATH=$PROGRAMS/App:$PROGRAMS/Tools/Backend:$PATH",
             R"(quorvane-mdm --no-such-option | 64 | --no-such-option\nTry quorvane-mdm --help.\n
quorvane-mdm --managed-configuration '' | 64 | is empty\nTry quorvane-mdm --help.\n
quorvane-mdm --managed-configuration= | 64 | 1 required FILE missing\nTry quorvane-mdm --help.\n
mkdir $DEVICE/lost; cd $DEVICE/lost; rmdir $DEVICE/lost; quorvane-mdm --managed-configuration file | 64 | use an absolute path\nTry quorvane-mdm --help.\n
ulimit -s $((1 << 40)); quorvane-mdm | 70 | Resource temporarily unavailable\n
for status in 599x 199 600; do timeout --preserve-status 9 quorvane-backend --reply '/=200' --reply '/=599' --reply "/=$status" && exit; done | 64 | --reply: '600' is not a number from 200 to 599
quorvane-backend --header '/=A: b' --header $'/=A: b=\nC: d' | 64 | --header: 'A: b=\nC: d' is not of the form
timeout 20 quorvane-backend > /dev/full || exit; ln -s /dev/full $DEVICE/server.pem; quorvane-backend --certificates $DEVICE | 69 | cannot write
quorvane-backend --delay '/=86400000' --delay '/=86400001' | 64 | --delay: '86400001' is not)");
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

TEST_F(ProgramTest, CoreDumpsNeedTheDevelopmentProfile)
{
    const std::pair<const char*, const char*> programs[] = {
        {"App/quorvane-mdm --log-stderr", "com.quorvane.mdm general"},
        {"Tools/qvctl/qvctl wait --version 99", "waiting for it"}};
    for (const char* profile : {"redact", "show"}) {
        device.setEnvironment("QUORVANE_LOG_PRIVATE_DATA", profile);
        for (const auto& [command, line] : programs) {
            const auto process =
                device.startShell(std::string("ulimit -c unlimited; exec $PROGRAMS/") + command);
            ASSERT_TRUE(process->waitForLine(line));
            const auto read = [&](const char* file) {
                return ThrowawayDevice::read(fmt::format("/proc/{}/{}", process->processId(), file));
            };
            const bool isDumping = profile == std::string("show");
            // With a limit of 1 the kernel dumps neither to a file nor to a program.
            EXPECT_EQ(read("limits").find("Max core file size        1  ") == std::string::npos, isDumping);
            EXPECT_EQ(read("coredump_filter") != "00000000\n", isDumping) << "a dump without memory";
        }
    }
}

TEST_F(ProgramTest, EnvironmentAndFontsDecideTheLanguage)
{
    const auto headlineIn = [this](const char* locale) {
        device.setEnvironment("LANGUAGE", "");
        device.setEnvironment("LC_ALL", locale);
        const auto application = device.startApplication();
        const DrivenWindow window = device.window();
        std::string headline = window.text("welcome.headline");
        window.close();
        EXPECT_EQ(application->waitForExit(), 0) << "it ends with its window";
        return headline;
    };
    EXPECT_EQ(headlineIn("de_AT.UTF-8"), "Ihre umfassende Lösung für Unified Endpoint Management");
    device.write(device.path("fonts.conf"), "<fontconfig><dir>/nonexistent</dir></fontconfig>");
    device.setEnvironment("FONTCONFIG_FILE", device.path("fonts.conf"));
    EXPECT_EQ(headlineIn("ja_JP.UTF-8"), "Your comprehensive Unified Endpoint Management solution");
}

} // namespace
