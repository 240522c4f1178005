// Changes that the kernel does not report, as on network file systems.

#include "Platform/Storage/FileDescriptor.h"
#include "Tests/EndToEnd/ProgramTest.h"
#include "Tests/Fakes/MappedFile.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using Platform::Storage::FileDescriptor;
using testing::HasSubstr;

namespace {

TEST_F(ProgramTest, ReloadAppliesChangesWithoutEvents)
{
    device.replacePolicy(R"({"device_id": "DEV-1"})");
    const auto application = startUntil(ready);
    const auto unchanged = qvctlJSON({"reload"});
    EXPECT_EQ(unchanged.at("configVersion"), 1);
    EXPECT_TRUE(unchanged.at("changed").as_array().empty());
    overwriteWithoutEvents(device.policyFile(), R"({"device_id": "DEV-2"})");
    const Outcome changed = qvctl({"reload"});
    EXPECT_EQ(changed.exitCode, 0);
    EXPECT_EQ(changed.output, "Applied version 2; changed: device id\n");
    EXPECT_EQ(qvctlJSON({"snapshot"}).at("deviceId"), "DEV-2");
    overwriteWithoutEvents(device.policyFile(), R"({"device_id": "DEV-3")");
    EXPECT_EQ(qvctl({"reload"}).exitCode, 78);
    overwriteWithoutEvents(device.policyFile(), R"({"device_id": "DEV-3"})");
    device.setEnvironment("XDG_DATA_HOME", device.path("other"));
    const Outcome other = qvctl({"reload"});
    EXPECT_EQ(other.exitCode, ::geteuid() == 0 ? 0 : 69) << other.output;
    if (::geteuid() == 0) {
        EXPECT_THAT(other.output, HasSubstr("(process " + std::to_string(application->processId()) + ")\n"));
        EXPECT_TRUE(application->waitForLine("Configuration updated - v3"));
    }
    EXPECT_EQ(application->end(), 0);
}

/// Runs until it is killed, as a process with the application's name that holds the lock.
pid_t startOldApplication(const std::filesystem::path& lock)
{
    const pid_t process = ::fork();
    if (process != 0)
        return process;
    ::prctl(PR_SET_NAME, "quorvane-mdm");
    const int file = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    if (::fcntl(file, F_SETLK, &whole) == 0)
        ::pause();
    ::_exit(1);
}

TEST_F(ProgramTest, ReloadDoesNotEndAnAppThatCannotReload)
{
    device.replacePolicy("{}");
    const auto lock = device.path("data/quorvane-mdm/instance.lock");
    std::filesystem::create_directories(lock.parent_path());
    const pid_t old = startOldApplication(lock);
    while (qvctlJSON({"status"}).at("processId") != old)
        ::usleep(1000);
    const Outcome outcome = qvctl({"reload"});
    EXPECT_EQ(outcome.exitCode, 69);
    EXPECT_THAT(outcome.output, HasSubstr("older version"));
    int status = 0;
    EXPECT_EQ(::waitpid(old, &status, WNOHANG), 0) << "it was ended";
    ::kill(old, SIGKILL);
    ::waitpid(old, &status, 0);
}

} // namespace
