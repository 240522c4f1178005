#include "Tools/qvctl/Doctor/SecondProcess.h"

#include "Platform/Storage/FileDescriptor.h"
#include "Tools/qvctl/Deadline.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace Qvctl::Doctor {

namespace {

using Platform::Storage::FileDescriptor;

pid_t start(const std::string& program, const std::vector<std::string>& arguments, int output)
{
    std::vector<char*> argumentPointers{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        argumentPointers.push_back(const_cast<char*>(argument.c_str()));
    argumentPointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    pid_t process = 0;
    const int error =
        ::posix_spawn(&process, program.c_str(), &actions, nullptr, argumentPointers.data(), ::environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), program);
    return process;
}

/// Returns false if the deadline passed before the end of file.
bool readToEnd(int descriptor, std::string& text, const Deadline& deadline)
{
    std::array<char, 4096> chunk{};
    pollfd polled{descriptor, POLLIN, 0};
    while (deadline.remaining().count() > 0) {
        const int readyCount = ::poll(&polled, 1, static_cast<int>(deadline.remaining().count()));
        const ssize_t count = readyCount > 0 ? ::read(descriptor, chunk.data(), chunk.size()) : -1;
        if (count > 0)
            text.append(chunk.data(), static_cast<std::size_t>(count));
        else if (count == 0 || readyCount == 0 || errno != EINTR)
            return count == 0;
    }
    return false;
}

} // namespace

ProcessOutcome runSecondProcess(const std::string& program, const std::vector<std::string>& arguments,
                                std::chrono::milliseconds timeout)
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const FileDescriptor readingEnd(ends[0]);
    FileDescriptor writingEnd(ends[1]);
    const pid_t process = start(program, arguments, writingEnd.get());
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

} // namespace Qvctl::Doctor
