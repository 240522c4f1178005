#include "Platform/Linux/ProgramUpgrade.h"

#include "Platform/Linux/Device.h"
#include "Platform/Linux/ProcessSignals.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Platform/Linux/IsolatedProcess.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <semaphore>
#include <unistd.h>

using namespace Platform;
using namespace Platform::Linux;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Performs the restart in a child process. Returns whether another program has run and succeeded there.
bool restarts(const ProgramRestart& restart)
{
    const auto perform = [&] {
        restart.performIfRequested();
        return false;
    };
    return runIsolated(0, perform).value();
}

/// A program that runs in another process and is replaced by a script.
class ProgramUpgradeTest : public testing::Test {
protected:
    ~ProgramUpgradeTest() override
    {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
    [[nodiscard]] pid_t start() const
    {
        fs::copy_file("/bin/sleep", program);
        ::mkfifo(folder.path("program.end").c_str(), 0600);
        const pid_t started = ::fork();
        if (started == 0) {
            ::execl(program.c_str(), "sleep", "1000", nullptr);
            ::_exit(1);
        }
        while (ProgramFile::of(std::to_string(started))->path != program)
            ::usleep(1000);
        return started;
    }
    /// Replaces the program with a script that records its arguments and runs `command`.
    void install(const std::string& command)
    {
        folder.write("next", script(command));
        fs::permissions(folder.path("next"), fs::perms::owner_all);
        fs::rename(folder.path("next"), program);
        upgrade.watch(watcher); // Checks at once.
    }
    /// In a trial, the script waits for `endTrial` and fails if it inherits our standard descriptors.
    static std::string script(const std::string& command)
    {
        return R"(#!/bin/sh
echo "$*" >> $0.log
[ "$2" != --version ] || { read line < $0.end; ls -l /proc/$$/fd/[012] | grep -v /dev/null && exit 9; }
)" + command + "\n";
    }
    /// Ends the trial and lets the upgrade notice it.
    void endTrial()
    {
        ASSERT_TRUE(isTrialRunning());
        const int end = ::open(folder.path("program.end").c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(::write(end, "\n", 1), 1);
        siginfo_t ended{};
        ::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT);
        ::close(end);
        scheduler.advance(100ms);
    }
    /// Returns whether there is another child process than `process`.
    [[nodiscard]] bool isTrialRunning() const
    {
        std::ifstream children("/proc/thread-self/children");
        return std::string(std::istreambuf_iterator<char>(children), {}) != std::to_string(process) + " ";
    }
    /// Returns and forgets the arguments of the script's runs, each followed by a line break.
    std::string runs()
    {
        std::string arguments = folder.read("program.log");
        fs::remove(folder.path("program.log"));
        return arguments;
    }

    TemporaryFolder folder;
    const fs::path program = folder.path("program");
    const pid_t process = start();
    int quitCount = 0;
    RecordingUnifiedLog log;
    ManualScheduler scheduler;
    ProgramRestart restart{{"--background"}, std::to_string(process)};
    ProgramUpgrade upgrade{
        {scheduler.mainQueue, scheduler, log.adapterLog, restart, [this] { ++quitCount; }}};
    Files::FileSystemWatcher watcher;
};

TEST_F(ProgramUpgradeTest, WaitsUntilNothingIsLost)
{
    upgrade.setHasWindow(true);
    install("exit 0");
    EXPECT_THAT(log.takeLines(), ElementsAre(testing::StartsWith(program.string() + " was replaced")));
    upgrade.watch(watcher);
    EXPECT_THAT(log.takeLines(), IsEmpty()) << "once";
    scheduler.advance(ProgramUpgrade::quietTime);
    EXPECT_FALSE(isTrialRunning()) << "a window is open";
    upgrade.setHasWindow(false);
    auto work = upgrade.activity().begin();
    scheduler.advance(ProgramUpgrade::quietTime);
    EXPECT_FALSE(isTrialRunning()) << "work is unfinished";
    work.reset();
    scheduler.runUntilIdle();
    scheduler.advance(ProgramUpgrade::quietTime);
    work = upgrade.activity().begin();
    endTrial();
    EXPECT_EQ(runs(), "--background --version\n");
    EXPECT_EQ(quitCount, 0) << "work has begun during the trial";
    EXPECT_FALSE(restarts(restart));
    work.reset();
    scheduler.runUntilIdle();
    upgrade.setHasWindow(true);
    scheduler.advance(ProgramUpgrade::quietTime);
    EXPECT_FALSE(isTrialRunning()) << "a window was opened during the pause";
    upgrade.setHasWindow(false);
    scheduler.advance(ProgramUpgrade::quietTime);
    endTrial();
    EXPECT_EQ(quitCount, 1);
    EXPECT_TRUE(restarts(restart));
    EXPECT_EQ(runs(), "--background --version\n--background\n");
}

TEST_F(ProgramUpgradeTest, PausesAfterEachFailedTrial)
{
    install("exit 1");
    std::chrono::milliseconds pause = ProgramUpgrade::quietTime;
    for (int round = 0; round < 14; ++round) {
        const std::string command = round == 1 ? "kill -9 $$" : round == 2 ? "hang" : "exit 1";
        folder.write("program", script(command));
        scheduler.advance(pause - 1ms);
        EXPECT_FALSE(isTrialRunning()) << command;
        scheduler.advance(1ms);
        if (command == "hang") {
            scheduler.advance(ProgramUpgrade::longestTrial);
            EXPECT_FALSE(isTrialRunning()) << "it was not killed";
            runs(); // It may have begun.
        } else {
            endTrial();
            EXPECT_EQ(runs(), "--background --version\n") << command;
        }
        pause = std::min<std::chrono::milliseconds>(2 * pause, ProgramUpgrade::longestPause);
    }
    EXPECT_EQ(quitCount, 0);
}

TEST_F(ProgramUpgradeTest, FileMayBeNamedLikeARemovedOne)
{
    const fs::path odd = folder.path("program (deleted)");
    fs::rename(program, odd);
    EXPECT_EQ(restart.program()->path, odd);
    EXPECT_FALSE(restart.program()->isReplaced);
    upgrade.watch(watcher);
    EXPECT_THAT(log.takeLines(), IsEmpty());
}

TEST(ProgramRestartTest, IsCanceledBySIGTERM)
{
    const TemporaryFolder folder;
    ManualScheduler scheduler;
    ProgramRestart restart({"--gtest_list_tests"});
    std::binary_semaphore hasQuit(0);
    ProcessSignals::block();
    const auto device =
        Linux::Device::make({.push = PushSource::off}, {folder.path("state"), {}},
                            {scheduler.mainQueue, scheduler, [&] { hasQuit.release(); }, [] {}}, {}, restart);
    ::kill(::getpid(), SIGTERM);
    hasQuit.acquire();
    restart.request();
    EXPECT_FALSE(restarts(restart));
}

} // namespace
