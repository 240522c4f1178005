#include "Tools/qvctl/SecondProcess.h"

#include "Platform/Storage/FileDescriptor.h"
#include "Tools/qvctl/NetworkSteps.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace Qvctl {

namespace {

using Platform::Storage::FileDescriptor;

constexpr const char* ourselves = "/proc/self/exe";

pid_t start(const std::vector<std::string>& arguments, int output)
{
    std::vector<char*> words{const_cast<char*>("qvctl")};
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    pid_t process = 0;
    const int error = ::posix_spawn(&process, ourselves, &actions, nullptr, words.data(), ::environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), ourselves);
    return process;
}

/// Whether it came to its end.
bool readToEnd(int descriptor, std::string& text, const Deadline& deadline)
{
    std::array<char, 4096> chunk{};
    while (waitFor(descriptor, POLLIN, deadline)) {
        const ssize_t count = ::read(descriptor, chunk.data(), chunk.size());
        if (count == 0)
            return true;
        if (count > 0)
            text.append(chunk.data(), static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return false;
    }
    return false;
}

} // namespace

ProcessOutcome runSecondProcess(const std::vector<std::string>& arguments, std::chrono::milliseconds timeout)
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const FileDescriptor readingEnd(ends[0]);
    FileDescriptor writingEnd(ends[1]);
    const pid_t process = start(arguments, writingEnd.get());
    writingEnd = FileDescriptor();

    ProcessOutcome outcome;
    outcome.hasEnded = readToEnd(readingEnd.get(), outcome.output, Deadline(timeout));
    if (!outcome.hasEnded)
        ::kill(process, SIGKILL);
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status))
        outcome.exitCode = WEXITSTATUS(status);
    return outcome;
}

} // namespace Qvctl
