#include "Platform/Linux/ProgramUpgrade.h"

#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/ProgramRestart.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Platform;
using namespace Platform::Linux;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

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
    /// In a trial, the script waits for `endTrial`.
    static std::string script(const std::string& command)
    {
        return "#!/bin/sh\necho \"$*\" >> $0.log\n[ \"$2\" != --version ] || read line < $0.end\n" + command +
               "\n";
    }
    /// Ends the trial and lets the upgrade notice it.
    void endTrial()
    {
        const int end = ::open(folder.path("program.end").c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(::write(end, "\n", 1), 1);
        siginfo_t ended{};
        for (int count = 0; count < 20'000 && ended.si_pid == 0; ++count) {
            ::usleep(1000);
            ::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT | WNOHANG);
        }
        ::close(end);
        scheduler.advance(100ms);
    }
    /// Returns the exit code of a child process that performs the restart: 1 unless it was requested.
    [[nodiscard]] int exitCodeOfRestart() const
    {
        const pid_t child = ::fork();
        if (child == 0) {
            restart.performIfRequested();
            ::_exit(1);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        return WEXITSTATUS(status);
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
    install("[ \"$2\" = --version ] || exit 42");
    EXPECT_THAT(log.takeLines(), ElementsAre(testing::StartsWith(program.string() + " was replaced")));
    upgrade.watch(watcher);
    EXPECT_THAT(log.takeLines(), IsEmpty()) << "once";
    scheduler.advance(1h);
    upgrade.setHasWindow(false);
    auto work = upgrade.activity().begin();
    scheduler.advance(1h);
    EXPECT_FALSE(isTrialRunning());
    work.reset();
    scheduler.runUntilIdle();
    scheduler.advance(ProgramUpgrade::quietTime);
    work = upgrade.activity().begin();
    endTrial();
    EXPECT_EQ(runs(), "--background --version\n");
    EXPECT_EQ(quitCount, 0) << "work has begun during the trial";
    EXPECT_EQ(exitCodeOfRestart(), 1);
    upgrade.setHasWindow(true);
    work.reset();
    scheduler.advance(1h);
    EXPECT_FALSE(isTrialRunning());
    upgrade.setHasWindow(false);
    scheduler.advance(ProgramUpgrade::quietTime);
    endTrial();
    EXPECT_EQ(quitCount, 1);
    EXPECT_EQ(exitCodeOfRestart(), 42);
    EXPECT_EQ(runs(), "--background --version\n--background\n");
    restart.cancel(); // The user ends the application.
    restart.request();
    EXPECT_EQ(exitCodeOfRestart(), 1);
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

} // namespace
