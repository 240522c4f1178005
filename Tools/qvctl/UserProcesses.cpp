#include "Tools/qvctl/UserProcesses.h"

#include "Platform/Error.h"
#include "Platform/Storage/FileDescriptor.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Qvctl {

namespace {

using Platform::Storage::FileDescriptor;
using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t concurrentProcessCount = 8;
constexpr std::size_t maximumOutputBytes = std::size_t{64} << 20;

/// Throws the error of a failed system call.
void requireCall(bool hasSucceeded, const char* call)
{
    if (!hasSucceeded)
        throw std::system_error(errno, std::generic_category(), call);
}

/// Keeps only what a login of the user would set.
void setEnvironment(const UserAccount& account)
{
    ::clearenv();
    ::setenv("HOME", account.home.c_str(), 1);
    ::setenv("USER", account.name.c_str(), 1);
    ::setenv("LOGNAME", account.name.c_str(), 1);
    // systemd's folder for the sockets of a user who is logged in.
    const std::string runtimeFolder = fmt::format("/run/user/{}", account.user);
    struct stat status {};
    if (::lstat(runtimeFolder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
        status.st_uid == account.user)
        ::setenv("XDG_RUNTIME_DIR", runtimeFolder.c_str(), 1);
}

/// Closes everything of the caller that a program of the user could reach through this process.
void leaveCaller(int output, int diagnostics)
{
    // Without a terminal, nothing can be typed into that of the caller.
    requireCall(::setsid() >= 0, "setsid");
    requireCall(::chdir("/") == 0, "chdir");
    const int empty = ::open("/dev/null", O_RDONLY);
    requireCall(empty >= 0 && ::dup2(empty, STDIN_FILENO) >= 0, "/dev/null");
    requireCall(::dup2(output, STDOUT_FILENO) >= 0 && ::dup2(diagnostics, STDERR_FILENO) >= 0, "dup2");
    requireCall(::close_range(STDERR_FILENO + 1, ~0U, 0) == 0, "close_range");
}

void becomeUser(const UserAccount& account)
{
    if (::geteuid() != account.user) {
        requireCall(::initgroups(account.name.c_str(), account.group) == 0, "initgroups");
        requireCall(::setresgid(account.group, account.group, account.group) == 0, "setresgid");
        requireCall(::setresuid(account.user, account.user, account.user) == 0, "setresuid");
    }
    // The user's other processes could otherwise trace this one. Both settings end with a change of the user.
    requireCall(::prctl(PR_SET_DUMPABLE, 0) == 0, "prctl");
    requireCall(::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "prctl");
    // Commands that read write no files; pipes have no limit.
    constexpr rlimit none{.rlim_cur = 0, .rlim_max = 0};
    requireCall(::setrlimit(RLIMIT_FSIZE, &none) == 0, "setrlimit");
}

[[noreturn]] void runInChild(const UserAccount& account, int output, int diagnostics,
                             const std::function<ExitCode(const UserAccount&)>& command)
{
    int code = internal;
    try {
        leaveCaller(output, diagnostics);
        setEnvironment(account);
        becomeUser(account);
        code = command(account);
        flushOutput();
    } catch (const std::exception& error) {
        printError("{}", error.what());
        code = unavailable;
    }
    ::_exit(code);
}

/// The process of one user.
class UserProcess {
public:
    UserProcess(const UserAccount& account, SteadyClock::time_point deadline,
                const std::function<ExitCode(const UserAccount&)>& command)
        : m_deadline(deadline)
    {
        std::array<int, 2> output{};
        std::array<int, 2> diagnostics{};
        requireCall(::pipe2(output.data(), O_CLOEXEC | O_NONBLOCK) == 0, "pipe");
        m_output = FileDescriptor(output[0]);
        const FileDescriptor outputEnd(output[1]);
        requireCall(::pipe2(diagnostics.data(), O_CLOEXEC | O_NONBLOCK) == 0, "pipe");
        m_diagnostics = FileDescriptor(diagnostics[0]);
        const FileDescriptor diagnosticsEnd(diagnostics[1]);
        // Writers wait.
        requireCall(::fcntl(outputEnd.get(), F_SETFL, 0) == 0 &&
                        ::fcntl(diagnosticsEnd.get(), F_SETFL, 0) == 0,
                    "fcntl");
        m_process = ::fork();
        requireCall(m_process >= 0, "fork");
        if (m_process == 0)
            runInChild(account, outputEnd.get(), diagnosticsEnd.get(), command);
    }

    [[nodiscard]] SteadyClock::time_point deadline() const { return m_deadline; }

    void appendPolled(std::vector<pollfd>& polled) const
    {
        for (const FileDescriptor* descriptor : {&m_output, &m_diagnostics}) {
            if (*descriptor)
                polled.push_back({descriptor->get(), POLLIN, 0});
        }
    }

    /// Reads what is there. Returns whether the process has ended or was killed.
    bool advance(UserOutcome& outcome)
    {
        readAvailable(m_output, outcome.output);
        readAvailable(m_diagnostics, outcome.diagnostics);
        const std::size_t size = outcome.output.size() + outcome.diagnostics.size();
        if (size > maximumOutputBytes)
            outcome.failure = "printed too much and was stopped";
        else if (SteadyClock::now() >= m_deadline)
            outcome.failure = "did not finish in time; the user's files may be locked or unreachable";
        else if (m_output || m_diagnostics)
            return false;
        end(outcome);
        return true;
    }

private:
    static void readAvailable(FileDescriptor& descriptor, std::string& text)
    {
        std::array<char, 65536> chunk{};
        while (descriptor && text.size() <= maximumOutputBytes) {
            const ssize_t count = ::read(descriptor.get(), chunk.data(), chunk.size());
            if (count > 0)
                text.append(chunk.data(), static_cast<std::size_t>(count));
            else if (count < 0 && errno == EINTR)
                continue;
            else if (count < 0 && errno == EAGAIN)
                return;
            else
                descriptor = FileDescriptor();
        }
    }

    /// The process has ended if there is no failure.
    void end(UserOutcome& outcome) const
    {
        int status = 0;
        if (!outcome.failure.empty()) {
            // With its own child processes. A process that hangs in the kernel is left behind.
            ::kill(-m_process, SIGKILL);
            ::kill(m_process, SIGKILL);
            ::waitpid(m_process, &status, WNOHANG);
            return;
        }
        while (::waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
        }
        if (WIFEXITED(status))
            outcome.exitCode = WEXITSTATUS(status);
        else
            outcome.failure = "was killed";
    }

    SteadyClock::time_point m_deadline;
    FileDescriptor m_output;
    FileDescriptor m_diagnostics;
    pid_t m_process = -1;
};

/// Waits until one of the processes prints something, ends or reaches its deadline.
void waitForAny(const std::vector<std::pair<std::size_t, UserProcess>>& running)
{
    std::vector<pollfd> polled;
    SteadyClock::time_point deadline = SteadyClock::time_point::max();
    for (const auto& [index, process] : running) {
        process.appendPolled(polled);
        deadline = std::min(deadline, process.deadline());
    }
    using std::chrono::milliseconds;
    const auto left = std::chrono::ceil<milliseconds>(deadline - SteadyClock::now());
    if (::poll(polled.data(), polled.size(), static_cast<int>(std::max(left, milliseconds(0)).count())) < 0 &&
        errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "poll");
}

} // namespace

void runForUsers(const std::vector<UserAccount>& accounts, std::chrono::milliseconds timeLimit,
                 const std::function<ExitCode(const UserAccount&)>& command,
                 const std::function<void(const UserAccount&, const UserOutcome&)>& report)
{
    std::vector<UserOutcome> outcomes(accounts.size());
    std::vector<std::pair<std::size_t, UserProcess>> running;
    std::size_t startedCount = 0;
    std::size_t reportedCount = 0;
    const auto isFinished = [&](std::size_t index) {
        return index < startedCount && std::none_of(running.begin(), running.end(),
                                                    [&](const auto& entry) { return entry.first == index; });
    };
    while (reportedCount < accounts.size()) {
        for (; startedCount < accounts.size() && running.size() < concurrentProcessCount; ++startedCount) {
            flushOutput(); // Otherwise the child would print it, too.
            try {
                running.emplace_back(startedCount, UserProcess(accounts[startedCount],
                                                               SteadyClock::now() + timeLimit, command));
            } catch (const std::system_error& error) {
                outcomes[startedCount].failure =
                    fmt::format("could not be started: {}", Platform::errorText(error.code().value()));
            }
        }
        if (!running.empty())
            waitForAny(running);
        std::erase_if(running, [&](auto& entry) { return entry.second.advance(outcomes[entry.first]); });
        for (; isFinished(reportedCount); ++reportedCount)
            report(accounts[reportedCount], std::exchange(outcomes[reportedCount], {}));
    }
}

} // namespace Qvctl
