#include "Platform/Linux/InstanceLock.h"

#include "Platform/Linux/ApplicationProcess.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using Platform::Linux::ApplicationProcess;
using Platform::Linux::InstanceLock;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::ThrowsMessage;
using SignalOutcome = InstanceLock::SignalOutcome;
using WhenSignaled = InstanceLock::WhenSignaled;

namespace {

/// A child process, killed by the destructor.
class Child {
public:
    /// Runs `prepare` in the child and returns when it is done. The child exits if `prepare` returns false.
    explicit Child(const std::function<bool()>& prepare) : m_process(::fork())
    {
        if (m_process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (!prepare())
                ::_exit(1);
            ::raise(SIGSTOP);
            while (true)
                ::pause();
        }
        int status = 0;
        m_isReady = ::waitpid(m_process, &status, WUNTRACED) == m_process && WIFSTOPPED(status) &&
                    ::kill(m_process, SIGCONT) == 0;
    }
    ~Child()
    {
        if (m_isReady && isAlive()) {
            ::kill(m_process, SIGKILL);
            ::waitpid(m_process, nullptr, 0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] bool isReady() const { return m_isReady; }
    [[nodiscard]] pid_t process() const { return m_process; }
    [[nodiscard]] bool isAlive() const { return ::waitpid(m_process, nullptr, WNOHANG) == 0; }

private:
    const pid_t m_process;
    bool m_isReady = false;
};

class InstanceLockTest : public testing::Test {
protected:
    [[nodiscard]] bool lock(int command = F_SETLK) const
    {
        struct flock whole {};
        whole.l_type = F_WRLCK;
        // Left open, so the lock lasts until the process exits.
        return ::fcntl(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666), command, &whole) == 0;
    }
    [[nodiscard]] SignalOutcome signalHolder(std::chrono::milliseconds usualTime = 10ms,
                                             std::chrono::milliseconds exitTime = 10ms) const
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
    };
    const Case cases[] = {
        {nullptr, true, ::geteuid(), SignalOutcome::delivered},
        {nullptr, false, ::geteuid(), SignalOutcome::ended},
        {"quorvane-md", false, ::geteuid(), SignalOutcome::foreign},
        {"quorvane-mdm", false, ::geteuid(), SignalOutcome::foreign},
        {nullptr, false, 12345, SignalOutcome::foreign},
        {"quorvane-mdm", false, 12345, SignalOutcome::foreign},
    };
    for (const Case& row : cases) {
        if (row.user != ::geteuid() && ::geteuid() != 0)
            continue;
        SCOPED_TRACE(&row - cases);
        const Child child([&] {
            sigset_t blocked{};
            ::sigaddset(&blocked, SIGUSR2);
            ::sigprocmask(SIG_SETMASK, &blocked, nullptr);
            return (row.program == nullptr || ::prctl(PR_SET_NAME, row.program) == 0) &&
                   (!row.isIgnoringSignals || std::signal(SIGUSR1, SIG_IGN) != SIG_ERR) && lock() &&
                   ::setuid(row.user) == 0;
        });
        const auto holder = InstanceLock::holder(file);
        ASSERT_TRUE(child.isReady() && holder);
        EXPECT_EQ(holder->process, child.process());
        if (row.program != nullptr) {
            EXPECT_EQ(holder->program, row.program);
            EXPECT_EQ(holder->isApplication(), row.program == std::string("quorvane-mdm"));
        }
        const auto process = ApplicationProcess::open(child.process());
        EXPECT_EQ(process.has_value(), holder->program == "quorvane-mdm");
        EXPECT_EQ(
            std::ranges::count(ApplicationProcess::all(), child.process(), &ApplicationProcess::identifier),
            process ? 1 : 0);
        if (process) {
            EXPECT_EQ(process->user(), row.user);
            EXPECT_EQ(process->send(SIGUSR1), ApplicationProcess::Outcome::unsupported);
            EXPECT_EQ(process->send(SIGUSR2), ApplicationProcess::Outcome::delivered);
        }
        EXPECT_FALSE(InstanceLock::acquire(file));
        const bool isEnding = row.outcome == SignalOutcome::ended;
        EXPECT_EQ(signalHolder(isEnding ? 20s : 10ms), row.outcome);
        EXPECT_EQ(child.isAlive(), !isEnding);
    }
    EXPECT_TRUE(InstanceLock::acquire(file));
}

TEST_F(InstanceLockTest, HolderShowsWhatItDoesWhenSignaled)
{
    for (const auto whenSignaled : {WhenSignaled::opensWindow, WhenSignaled::exits}) {
        std::optional<InstanceLock> lock;
        const Child application([&] {
            lock = InstanceLock::acquire(file, whenSignaled);
            // Takes longer to exit than the other time limit allows.
            const auto exitSlowly = [](int) {
                ::usleep(200'000);
                ::_exit(0);
            };
            return lock && std::signal(SIGUSR1, exitSlowly) != SIG_ERR;
        });
        ASSERT_TRUE(application.isReady());
        EXPECT_EQ(InstanceLock::holder(file)->whenSignaled, whenSignaled);
        EXPECT_FALSE(InstanceLock::acquire(file, WhenSignaled::opensWindow));
        EXPECT_FALSE(InstanceLock::acquire(file, WhenSignaled::exits));
        const bool isExiting = whenSignaled == WhenSignaled::exits;
        EXPECT_EQ(signalHolder(isExiting ? 1ms : 20s, isExiting ? 20s : 1ms), SignalOutcome::ended);
    }
}

TEST_F(InstanceLockTest, HolderWithoutProcessIdIsUnreachable)
{
    {
        const Child openFileLock([&] { return lock(F_OFD_SETLK); });
        ASSERT_TRUE(openFileLock.isReady());
        ASSERT_TRUE(InstanceLock::holder(file));
        EXPECT_EQ(InstanceLock::holder(file)->process, std::nullopt);
        EXPECT_EQ(signalHolder(), SignalOutcome::unreachable);
        EXPECT_FALSE(InstanceLock::acquire(file));
    }
    ASSERT_TRUE(lock());
    const auto leaveNamespace = [] {
        return ::unshare(CLONE_NEWPID) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWPID) == 0;
    };
    if (!Child(leaveNamespace).isReady())
        GTEST_SKIP() << "cannot create a PID namespace here";
    const Child container([&] {
        if (!leaveNamespace())
            return false;
        const pid_t first = ::fork();
        if (first == 0) {
            // In this namespace, the holder's PID is 0.
            const auto holder = InstanceLock::holder(file);
            ::_exit(holder && !holder->process && signalHolder() == SignalOutcome::unreachable ? 0 : 1);
        }
        int status = -1;
        return ::waitpid(first, &status, 0) == first && status == 0;
    });
    EXPECT_TRUE(container.isReady());
}

TEST_F(InstanceLockTest, AcceptsOnlyARegularFile)
{
    const auto expectRefusal = [&](const char* reason) {
        EXPECT_FALSE(InstanceLock::holder(file));
        EXPECT_THAT([&] { InstanceLock::acquire(file); },
                    ThrowsMessage<std::runtime_error>(HasSubstr(reason)));
    };
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    expectRefusal("instance.lock is not a regular file");
    std::filesystem::remove(file);
    std::filesystem::create_symlink("elsewhere", file);
    expectRefusal("instance.lock is a link");
    EXPECT_FALSE(std::filesystem::exists(folder.path("elsewhere")));
    const Child lockedElsewhere([&] { return lock(); });
    EXPECT_TRUE(lockedElsewhere.isReady());
    EXPECT_FALSE(InstanceLock::holder(file));
}

} // namespace
