#include "Tools/Tour/ChildProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

using namespace std::chrono;
using Platform::Storage::FileDescriptor;

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const ChildProcess::Environment& overrides)
{
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (overrides.find(text.substr(0, text.find('='))) == overrides.end())
            result.push_back(text);
    }
    for (const auto& [name, value] : overrides)
        result.push_back(std::string(name).append("=").append(value));
    return result;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const Environment& environment)
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    m_output = FileDescriptor(ends[0]);
    const FileDescriptor input(ends[1]);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, input.get(), STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, input.get(), STDERR_FILENO);
    auto argumentTexts = arguments;
    auto environmentTexts = environmentWith(environment);
    const int error = ::posix_spawnp(&m_processId, arguments.front().c_str(), &actions, nullptr,
                                     pointersTo(argumentTexts).data(), pointersTo(environmentTexts).data());
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), arguments.front());
}

ChildProcess::~ChildProcess()
{
    if (m_exitCode)
        return;
    signal(SIGKILL);
    ::waitpid(m_processId, nullptr, 0);
}

bool ChildProcess::readMore(steady_clock::time_point deadline)
{
    pollfd waiting{m_output.get(), POLLIN, 0};
    const auto left = duration_cast<milliseconds>(deadline - steady_clock::now()).count();
    if (left < 0 || ::poll(&waiting, 1, static_cast<int>(left)) <= 0)
        return false;
    std::array<char, 65536> chunk;
    const ssize_t count = ::read(m_output.get(), chunk.data(), chunk.size());
    m_isAtEnd = count == 0;
    if (count <= 0)
        return false;
    m_partialLine.append(chunk.data(), static_cast<std::size_t>(count));
    for (auto end = m_partialLine.find('\n'); end != std::string::npos; end = m_partialLine.find('\n')) {
        m_lines.push_back(m_partialLine.substr(0, end));
        m_partialLine.erase(0, end + 1);
    }
    return true;
}

bool ChildProcess::waitForLine(std::string_view text, milliseconds timeout)
{
    const auto deadline = steady_clock::now() + timeout;
    do {
        while (m_searchedLineCount < m_lines.size()) {
            if (m_lines[m_searchedLineCount++].find(text) != std::string::npos)
                return true;
        }
    } while (readMore(deadline));
    return false;
}

void ChildProcess::signal(int number) const
{
    ::kill(m_processId, number);
}

std::optional<int> ChildProcess::end()
{
    signal(SIGTERM);
    return waitForExit();
}

std::optional<int> ChildProcess::waitForExit(milliseconds timeout)
{
    const auto deadline = steady_clock::now() + timeout;
    while (readMore(deadline)) {
    }
    if (m_exitCode || !m_isAtEnd)
        return m_exitCode;
    // The output has ended; the process itself may take a moment longer.
    int status = 0;
    if (::waitpid(m_processId, &status, 0) == m_processId)
        m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return m_exitCode;
}
