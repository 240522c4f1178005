#include "Platform/Linux/ProgramRestart.h"

#include "Platform/Error.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace Platform::Linux {

namespace {

/// Ends with a null pointer, as exec(3) requires.
std::vector<char*> argumentPointers(std::vector<std::string>& command)
{
    std::vector<char*> pointers;
    for (std::string& argument : command)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// Returns 0 if the process could not be started.
pid_t spawnSilently(std::vector<std::string> command)
{
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_RDWR, 0);
    pid_t process = 0;
    const int error = ::posix_spawn(&process, command.front().c_str(), &actions, nullptr,
                                    argumentPointers(command).data(), ::environ);
    ::posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? process : 0;
}

} // namespace

ProgramTrial::ProgramTrial(std::vector<std::string> command) : m_process(spawnSilently(std::move(command))) {}

ProgramTrial::~ProgramTrial()
{
    if (m_process == 0)
        return;
    ::kill(m_process, SIGKILL);
    while (::waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::optional<bool> ProgramTrial::outcome()
{
    int status = 0;
    if (m_process != 0) {
        const pid_t ended = ::waitpid(m_process, &status, WNOHANG);
        if (ended == 0)
            return std::nullopt;
        m_hasSucceeded = ended == m_process && WIFEXITED(status) && WEXITSTATUS(status) == 0;
        m_process = 0;
    }
    return m_hasSucceeded;
}

ProgramRestart::ProgramRestart(std::vector<std::string> arguments, std::string process)
    : m_arguments(std::move(arguments)), m_process(std::move(process))
{}

std::vector<std::string> ProgramRestart::command() const
{
    const auto found = program();
    std::vector<std::string> command{found ? found->path.string() : std::string()};
    command.insert(command.end(), m_arguments.begin(), m_arguments.end());
    return command;
}

std::vector<std::string> ProgramRestart::trialCommand() const
{
    std::vector<std::string> words = command();
    words.emplace_back("--version");
    return words;
}

void ProgramRestart::performIfRequested() const
{
    if (!m_isRequested || m_isCanceled)
        return;
    std::vector<std::string> words = command();
    ::execv(words.front().c_str(), argumentPointers(words).data());
    std::fprintf(stderr, "quorvane-mdm: cannot start %s: %s\n", words.front().c_str(),
                 errorText(errno).c_str());
}

} // namespace Platform::Linux
