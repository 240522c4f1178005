#include "Platform/Storage/FileDescriptor.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/UserAccounts.h"
#include "Tools/qvctl/UserProcesses.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
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
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
    print("{} {} {} {}", std::getenv("HOME"), std::filesystem::current_path(), isCreated,
          ::write(descriptor, "x", 1));
    ::close(descriptor);
    print(" {} {} {}", isOpen("/dev/tty", O_RDWR), std::getenv("CANARY") != nullptr,
          ::getsid(0) == ::getpid());
    print(" {} {} {}", ::fcntl(100, F_GETFD), ::lseek(STDIN_FILENO, 0, SEEK_CUR), ::prctl(PR_GET_DUMPABLE));
    printError("done");
    return success;
}

TEST(UserProcessesTest, ReportsOutcomesInOrderAndIsolatesProcesses)
{
    const TemporaryFolder folder;
    struct Case {
        const char* user;
        ExitCode (*command)(const UserAccount&);
        std::optional<int> exitCode;
        const char* failure = "";
        const char* diagnostics = "";
    };
    const Case cases[] = {
        {"slow",
         [](const UserAccount& account) {
             while (!std::filesystem::exists(account.home / "last"))
                 ::usleep(1000);
             return success;
         },
         0},
        {"hanging",
         [](const UserAccount&) {
             ::pause();
             return success;
         },
         {},
         "did not finish in time"},
        // A second process must not keep the pipes open for longer.
        {"forking",
         [](const UserAccount&) {
             if (::fork() == 0)
                 ::pause();
             return success;
         },
         {},
         "did not finish in time"},
        {"stopped",
         [](const UserAccount&) {
             ::raise(SIGSTOP);
             return success;
         },
         {},
         "did not finish in time"},
        {"killed",
         [](const UserAccount&) {
             ::raise(SIGKILL);
             return success;
         },
         {},
         "was killed"},
        {"endless",
         [](const UserAccount&) {
             while (true)
                 writeOutput(std::string(100'000, 'x'));
             return success;
         },
         {},
         "printed too much"},
        {"throwing", [](const UserAccount&) -> ExitCode { throw std::runtime_error("reason"); }, 69, "",
         "qvctl: reason\n"},
        {"failing", [](const UserAccount&) { return configuration; }, 78},
        {"isolated", printSurroundings, 0, "", "qvctl: done\n"},
        {"last",
         [](const UserAccount& account) {
             ::close(::open((account.home / "last").c_str(), O_WRONLY | O_CREAT, 0600));
             return success;
         },
         0},
    };
    // Those that never finish.
    std::vector<UserAccount> hanging;
    std::vector<UserAccount> others;
    for (const Case& row : cases)
        (row.failure == std::string_view("did not finish in time") ? hanging : others)
            .push_back({row.user, ::geteuid(), ::getegid(), folder.path()});
    ::setenv("CANARY", "1", 1);
    ASSERT_EQ(::dup2(STDERR_FILENO, 100), 100);
    const auto rowOf = [&](const UserAccount& account) -> const Case& {
        return *std::find_if(std::begin(cases), std::end(cases),
                             [&](const Case& row) { return account.name == row.user; });
    };
    const auto runAll = [&](const std::vector<UserAccount>& accounts, std::chrono::milliseconds timeLimit) {
        std::size_t count = 0;
        runForUsers(
            accounts, timeLimit, [&](const UserAccount& account) { return rowOf(account).command(account); },
            [&](const UserAccount& account, const UserOutcome& outcome) {
                const Case& row = rowOf(account);
                EXPECT_EQ(account.name, accounts.at(count++).name);
                EXPECT_EQ(outcome.exitCode, row.exitCode) << row.user;
                EXPECT_THAT(outcome.failure, testing::StartsWith(row.failure)) << row.user;
                EXPECT_EQ(outcome.failure.empty(), std::string_view(row.failure).empty()) << row.user;
                EXPECT_EQ(outcome.diagnostics, row.diagnostics) << row.user;
                if (row.command == printSurroundings) {
                    EXPECT_EQ(outcome.output, folder.path().string() + " / true -1 false false true -1 0 0");
                }
            });
        EXPECT_EQ(count, accounts.size());
    };
    runAll(hanging, std::chrono::milliseconds(100));
    runAll(others, std::chrono::seconds(60));
    ::close(100);
}

TEST(UserAccountsTest, SelectsAccountsWithAStateFolder)
{
    const TemporaryFolder folder;
    const auto makeHome = [&](const char* name) {
        std::filesystem::create_directories(folder.path(name) / ".local/share/quorvane-mdm");
        return folder.path(name);
    };
    std::filesystem::create_directory(folder.path("empty"));
    std::filesystem::create_symlink("loop", folder.path("loop"));
    const std::vector<UserAccount> accounts{{"second", 70001, 0, makeHome("second")},
                                            {"first", 70000, 0, makeHome("first")},
                                            {"alias", 70001, 0, makeHome("alias")},
                                            {"new", 70002, 0, folder.path("empty")},
                                            {"homeless", 70003, 0, "/nonexistent"},
                                            {"relative", 70004, 0, ""},
                                            // Cannot be looked into; its own process will see.
                                            {"odd", 70005, 0, folder.path("loop")}};
    std::vector<std::string> names;
    for (const UserAccount& account : accountsWithState(accounts))
        names.push_back(account.name);
    EXPECT_THAT(names, testing::ElementsAre("first", "second", "odd"));
    EXPECT_EQ(accountNamed("first", accounts).user, 70000U);
    const auto errorFor = [&](const char* name) {
        try {
            return accountNamed(name, accounts).name;
        } catch (const CommandError& error) {
            return std::string(error.what());
        }
    };
    EXPECT_EQ(errorFor("secnod"), "there is no user 'secnod'. Did you mean 'second'?");
    EXPECT_EQ(errorFor("xyz"), "there is no user 'xyz'");
}

} // namespace
