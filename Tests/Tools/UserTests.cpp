#include "Platform/Storage/FileDescriptor.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/UserAccounts.h"
#include "Tools/qvctl/UserProcesses.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <sys/prctl.h>
#include <unistd.h>

using namespace Qvctl;

namespace {

/// What a process of a user can reach, and what it cannot.
ExitCode printSurroundings(const UserAccount& account)
{
    const auto isOpen = [](const char* file, int flags) {
        return static_cast<bool>(Platform::Storage::FileDescriptor(::open(file, flags, 0600)));
    };
    std::signal(SIGXFSZ, SIG_IGN);
    const std::string file = account.home / "written";
    const bool isCreated = isOpen(file.c_str(), O_WRONLY | O_CREAT);
    const Platform::Storage::FileDescriptor written(::open(file.c_str(), O_WRONLY | O_CLOEXEC));
    int deathSignal = 0;
    ::prctl(PR_GET_PDEATHSIG, &deathSignal);
    print("{} {} {} {} {} {} {} {} {} {} {}", std::getenv("HOME"), std::filesystem::current_path(), isCreated,
          ::write(written.get(), "x", 1), isOpen("/dev/tty", O_RDWR), std::getenv("CANARY") != nullptr,
          ::getsid(0) == ::getpid(), ::fcntl(100, F_GETFD), ::lseek(STDIN_FILENO, 0, SEEK_CUR),
          ::prctl(PR_GET_DUMPABLE), deathSignal);
    printError("done");
    return success;
}

/// A command that ends as its user's name says.
ExitCode runNamed(const UserAccount& account)
{
    const std::filesystem::path last = account.home / "last";
    if (account.name == "isolated")
        return printSurroundings(account);
    if (account.name == "slow")
        while (!exists(last))
            ::usleep(1000);
    if (account.name == "last")
        const std::ofstream created(last);
    if (account.name == "throwing")
        throw std::runtime_error("reason");
    if (account.name == "killed")
        ::raise(SIGKILL);
    if (account.name == "stopped")
        ::raise(SIGSTOP);
    // A second process must not keep the pipes open for longer, nor the lock.
    if (account.name == "forking")
        ::flock(::open((account.home / "lock").c_str(), O_RDONLY | O_CREAT, 0600), LOCK_EX);
    if (account.name == "hanging" || (account.name == "forking" && ::fork() == 0))
        ::pause();
    while (account.name == "endless")
        writeOutput(std::string(100'000, 'x'));
    return account.name == "failing" ? configuration : success;
}

TEST(UserProcessesTest, ReportsOutcomesInOrderAndIsolatesProcesses)
{
    const TemporaryFolder folder;
    const std::string surroundings = folder.path().string() + " / true -1 false false true -1 0 0 9";
    struct Case {
        const char* user;
        std::optional<int> exitCode;
        std::string failure = {}, diagnostics = {}, output = {};
    };
    const auto runAll = [&](const std::vector<Case>& cases, std::chrono::milliseconds timeLimit) {
        std::vector<UserAccount> accounts;
        for (const Case& row : cases)
            accounts.push_back({row.user, ::geteuid(), ::getegid(), folder.path()});
        std::size_t count = 0;
        runForUsers(accounts, timeLimit, runNamed,
                    [&](const UserAccount& account, const UserOutcome& outcome) {
                        const Case& row = cases.at(count++);
                        EXPECT_EQ(account.name, row.user);
                        EXPECT_EQ(outcome.exitCode, row.exitCode) << row.user;
                        EXPECT_THAT(outcome.failure, testing::StartsWith(row.failure)) << row.user;
                        EXPECT_EQ(outcome.failure.empty(), row.failure.empty()) << row.user;
                        EXPECT_EQ(outcome.diagnostics, row.diagnostics) << row.user;
                        EXPECT_EQ(row.failure == "printed too much" ? "" : outcome.output, row.output);
                    });
        EXPECT_EQ(count, cases.size());
    };
    ::setenv("CANARY", "1", 1);
    ASSERT_EQ(::dup2(STDERR_FILENO, 100), 100);
    runAll({{"hanging", {}, "did not finish in time"},
            {"forking", {}, "did not finish in time"},
            {"stopped", {}, "did not finish in time"}},
           std::chrono::milliseconds(100));
    const Platform::Storage::FileDescriptor lock(
        ::open(folder.path("lock").c_str(), O_RDONLY | O_CREAT, 0600));
    // Blocks unless its second process was killed.
    EXPECT_EQ(::flock(lock.get(), LOCK_EX), 0);
    runAll({{"slow", 0},
            {"killed", {}, "was killed"},
            {"endless", {}, "printed too much"},
            {"throwing", 69, "", "qvctl: reason\n"},
            {"failing", 78},
            {"isolated", 0, "", "qvctl: done\n", surroundings},
            {"last", 0}},
           std::chrono::seconds(60));
    ::close(100);
}

TEST(UserAccountsTest, SelectsAccountsWithAStateFolder)
{
    const TemporaryFolder folder;
    const auto makeHome = [&](const char* name) {
        std::filesystem::create_directories(folder.path(name) / ".local/share/quorvane-mdm");
        return folder.path(name);
    };
    std::filesystem::create_symlink("loop", folder.path("loop"));
    const std::vector<UserAccount> accounts{{"second", 70001, 0, makeHome("second")},
                                            {"first", 70000, 0, makeHome("first")},
                                            {"alias", 70001, 0, makeHome("alias")},
                                            {"new", 70002, 0, folder.path()},
                                            {"homeless", 70003, 0, "/dev/null"},
                                            {"relative", 70004, 0, relative(makeHome("near"))},
                                            // Cannot be looked into; its own process will see.
                                            {"odd", 70005, 0, folder.path("loop")}};
    const auto isNamed = [](const char* name) { return testing::Field(&UserAccount::name, name); };
    EXPECT_THAT(accountsWithState(accounts),
                testing::ElementsAre(isNamed("first"), isNamed("second"), isNamed("odd")));
}

} // namespace
