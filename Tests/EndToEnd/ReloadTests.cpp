// Changes that the kernel does not report, as on network file systems.

#include "Platform/Linux/InstanceLock.h"
#include "Tests/EndToEnd/ProgramTest.h"
#include "Tests/Fakes/MappedFile.h"

#include <csignal>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

TEST_F(ProgramTest, ReloadAppliesChangesWithoutEvents)
{
    device.replacePolicy(R"({"device_id": "DEV-1", "OrganizationId": "1"})");
    const auto application = startUntil(ready);
    EXPECT_EQ(qvctl({"reload"}).output, "No value changed; version 1 stays in effect\n");
    overwriteWithoutEvents(device.policyFile(), R"({"device_id": "DEV-1"})");
    EXPECT_EQ(boost::json::serialize(qvctlJSON({"reload"}).at("changed")), R"(["organizationId"])");
    overwriteWithoutEvents(device.policyFile(), R"({"device_id": "DEV-2"})");
    EXPECT_EQ(qvctl({"reload"}).output, "Applied version 3; changed: device id\n");
    overwriteWithoutEvents(device.policyFile(), R"({"device_id": "DEV-3")");
    EXPECT_EQ(qvctl({"reload"}).exitCode, 78);
    overwriteWithoutEvents(device.policyFile(), R"({"device_id": "DEV-3"})");
    device.setEnvironment("XDG_DATA_HOME", device.path("other"));
    const Outcome other = qvctl({"reload"});
    EXPECT_EQ(other.exitCode, ::geteuid() == 0 ? 0 : 69) << other.output;
    if (::geteuid() == 0) {
        EXPECT_THAT(other.output, HasSubstr("(process " + std::to_string(application->processId()) + ")\n"));
        EXPECT_TRUE(application->waitForLine("Configuration updated - v4"));
    }
    EXPECT_EQ(application->end(), 0);
}

/// The shell takes the app's name, but has no handler for the signal.
TEST_F(RootTest, ReloadFailsIfNoAppCanReload)
{
    checkAll("", R"(unshare -pf --mount-proc $QVCTL reload 2>&1 | 69 | qvctl: the app runs for no user\n
unshare -pf --mount-proc bash -c 'echo -n quorvane-mdm > /proc/$$/comm; $QVCTL reload 2>&1; exit $?' | 69 | qvctl: an older version, which cannot reload, runs for root; restart it\n)");
}

/// Starts the console as soon as this process has taken the app's name. It takes the name after the start,
/// because it blocks all signals while it starts another process.
std::unique_ptr<ChildProcess> startReload(const ThrowawayDevice& device)
{
    auto console = device.startShell("until grep -q mdm /proc/$PPID/comm; do :; done; $QVCTL reload");
    ::prctl(PR_SET_NAME, "quorvane-mdm");
    return console;
}

/// This process blocks the signal a moment later than it takes the app's name, as an app that starts does.
TEST_F(RootTest, ReloadReachesAnAppThatIsStarting)
{
    const auto console = startReload(device);
    std::this_thread::sleep_for(300ms);
    sigset_t reload;
    sigemptyset(&reload);
    sigaddset(&reload, SIGUSR2);
    ::pthread_sigmask(SIG_BLOCK, &reload, nullptr);
    EXPECT_EQ(console->waitForExit(), 0) << testing::PrintToString(console->lines());
    ::prctl(PR_SET_NAME, "EndToEndTests");
    constexpr timespec noTime{};
    EXPECT_EQ(::sigtimedwait(&reload, nullptr, &noTime), SIGUSR2);
    ::pthread_sigmask(SIG_UNBLOCK, &reload, nullptr);
}

/// This process takes the app's name and lock, but has no handler for the signal, which would end it.
TEST_F(ProgramTest, ReloadDoesNotEndAnAppThatCannotReload)
{
    device.replacePolicy("{}");
    const auto lock = Platform::Linux::InstanceLock::acquire(device.path("data/quorvane-mdm/instance.lock"));
    const auto console = startReload(device);
    EXPECT_EQ(console->waitForExit(), 69);
    ::prctl(PR_SET_NAME, "EndToEndTests");
    EXPECT_THAT(console->lines(), testing::ElementsAre(HasSubstr("older version")));
}

} // namespace
