#include "Platform/Linux/InstanceLock.h"

#include "Platform/Linux/ApplicationProcess.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Platform/Linux/IsolatedProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>

using Platform::Linux::ApplicationProcess;
using Platform::Linux::InstanceLock;
using namespace std::chrono_literals;
using SignalOutcome = InstanceLock::SignalOutcome;

namespace {

/// A child process, killed by the destructor.
class Child {
public:
    /// Runs `prepare` in the child and returns when it is done. The child exits if `prepare` returns false.
    explicit Child(const std::function<bool()>& prepare) : process(::fork())
    {
        if (process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (!prepare())
                ::_exit(1);
            ::raise(SIGSTOP);
            while (true)
                ::pause();
        }
        int status = 0;
        ::waitpid(process, &status, WUNTRACED);
        EXPECT_TRUE(WIFSTOPPED(status)) << "the child cannot be prepared";
        ::kill(process, SIGCONT);
    }
    ~Child()
    {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] bool isAlive() const
    {
        siginfo_t ended{};
        return ::waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               ended.si_pid == 0;
    }

    const pid_t process;
};

class InstanceLockTest : public testing::Test {
protected:
    /// Locks the whole file, or its first bytes.
    [[nodiscard]] bool lock(int command = F_SETLK, off_t length = 0) const
    {
        struct flock whole {};
        whole.l_type = F_WRLCK;
        whole.l_len = length;
        // Left open, so the lock lasts until the process exits.
        return ::fcntl(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666), command, &whole) == 0;
    }
    [[nodiscard]] SignalOutcome signalHolder(std::chrono::milliseconds usualTime = 10ms,
                                             std::chrono::milliseconds exitTime = 0ms) const
    {
        return InstanceLock::signalHolder(file, SIGUSR1, usualTime, exitTime);
    }

    TemporaryFolder folder;
    std::filesystem::path file = folder.path("instance.lock");
};

TEST_F(InstanceLockTest, OnlyThisProgramAndUserAreSignaled)
{
    EXPECT_FALSE(InstanceLock::holder(file));
    EXPECT_EQ(signalHolder(), SignalOutcome::ended);
    struct Case {
        /// A new name of the process, or null.
        const char* program;
        bool isIgnoringSignals;
        uid_t user;
        SignalOutcome outcome;
        /// 1 if it exits when signaled.
        off_t lockLength = 0;
    };
    const uid_t thisUser = ::geteuid();
    const Case cases[] = {
        {nullptr, true, thisUser, SignalOutcome::delivered},
        {nullptr, false, thisUser, SignalOutcome::ended},
        {nullptr, false, thisUser, SignalOutcome::ended, 1},
        {"quorvane-md", false, thisUser, SignalOutcome::foreign},
        {"quorvane-mdm", false, thisUser, SignalOutcome::foreign},
        {nullptr, false, 12345, SignalOutcome::foreign},
        {"quorvane-mdm", false, 12345, SignalOutcome::foreign},
    };
    for (const Case& row : cases) {
        if (row.user != thisUser && thisUser != 0)
            continue;
        SCOPED_TRACE(&row - cases);
        const Child child([&] {
            sigset_t blocked{};
            ::sigaddset(&blocked, SIGUSR2);
            ::sigprocmask(SIG_SETMASK, &blocked, nullptr);
            return (row.program == nullptr || ::prctl(PR_SET_NAME, row.program) == 0) &&
                   (!row.isIgnoringSignals || std::signal(SIGUSR1, SIG_IGN) != SIG_ERR) &&
                   lock(F_SETLK, row.lockLength) && ::setuid(row.user) == 0;
        });
        const auto holder = InstanceLock::holder(file);
        ASSERT_TRUE(holder);
        EXPECT_EQ(holder->process, child.process);
        if (row.program != nullptr) {
            EXPECT_EQ(holder->program, row.program);
            EXPECT_EQ(holder->isApplication(), row.program == std::string("quorvane-mdm"));
        }
        const auto process = ApplicationProcess::open(child.process);
        EXPECT_EQ(process.has_value(), holder->program == "quorvane-mdm");
        const auto all = ApplicationProcess::all();
        EXPECT_EQ(std::ranges::count(all, child.process, &ApplicationProcess::identifier), process ? 1 : 0);
        if (process) {
            EXPECT_EQ(process->user(), row.user);
            EXPECT_EQ(process->send(SIGUSR1), ApplicationProcess::Outcome::unsupported);
            EXPECT_EQ(process->send(SIGUSR2), ApplicationProcess::Outcome::delivered);
        }
        EXPECT_FALSE(InstanceLock::acquire(file));
        const bool isEnding = row.outcome == SignalOutcome::ended;
        EXPECT_EQ(row.lockLength == 0 ? signalHolder(isEnding ? 20s : 10ms) : signalHolder(0ms, 20s),
                  row.outcome);
        EXPECT_EQ(child.isAlive(), !isEnding);
    }
    EXPECT_TRUE(InstanceLock::acquire(file));
}

TEST_F(InstanceLockTest, HolderWithoutProcessIdIsUnreachable)
{
    {
        const Child openFileLock([&] { return lock(F_OFD_SETLK); });
        ASSERT_TRUE(InstanceLock::holder(file));
        EXPECT_EQ(InstanceLock::holder(file)->process, std::nullopt);
        EXPECT_EQ(signalHolder(), SignalOutcome::unreachable);
        EXPECT_FALSE(InstanceLock::acquire(file));
    }
    ASSERT_TRUE(lock());
    const auto isUnreachable = runIsolated(CLONE_NEWPID, [&] {
        // Only a child of this process is in the new namespace. There, the holder's PID is 0.
        const auto inside = runIsolated(0, [&] { return signalHolder() == SignalOutcome::unreachable; });
        return inside.value_or(false);
    });
    EXPECT_TRUE(isUnreachable.value_or(true));
}

TEST_F(InstanceLockTest, AcceptsOnlyARegularFile)
{
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_FALSE(InstanceLock::holder(file));
    EXPECT_THROW(InstanceLock::acquire(file), std::runtime_error);
    std::filesystem::remove(file);
    std::filesystem::create_symlink("elsewhere", file);
    EXPECT_THROW(InstanceLock::acquire(file), std::runtime_error);
    EXPECT_FALSE(std::filesystem::exists(folder.path("elsewhere")));
    const Child lockedElsewhere([&] { return lock(); });
    EXPECT_FALSE(InstanceLock::holder(file));
}

} // namespace
