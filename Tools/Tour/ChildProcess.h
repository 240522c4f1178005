#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// A child process and the lines that it writes to standard output and standard error. The destructor kills
/// it.
class ChildProcess {
public:
    using Environment = std::map<std::string, std::string>;

    /// `environment` overrides the variables of this process. Throws `std::system_error` if the program
    /// cannot be started.
    ChildProcess(const std::vector<std::string>& arguments, const Environment& environment);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Blocks until a line contains `text`, starting after the last line found; false after the timeout or at
    /// the end of the output.
    bool waitForLine(std::string_view text, std::chrono::milliseconds timeout = std::chrono::seconds(20));
    /// The lines read so far; all of them after `waitForExit`.
    [[nodiscard]] const std::vector<std::string>& lines() const { return m_lines; }

    void signal(int number) const;
    /// Blocks until the process ends. The exit code, or minus the number of a fatal signal; absent after the
    /// timeout.
    std::optional<int> waitForExit(std::chrono::milliseconds timeout = std::chrono::seconds(20));
    /// Sends SIGTERM and returns what `waitForExit` does.
    std::optional<int> end();
    [[nodiscard]] pid_t processId() const { return m_processId; }

private:
    bool readMore(std::chrono::steady_clock::time_point deadline);

    pid_t m_processId = -1;
    Platform::Storage::FileDescriptor m_output;
    bool m_isAtEnd = false;
    std::string m_partialLine;
    std::vector<std::string> m_lines;
    std::size_t m_searchedLineCount = 0;
    std::optional<int> m_exitCode;
};
