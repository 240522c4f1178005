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

/// A program started from here, with what it writes to standard output and standard error, line by line. It
/// is killed when this object goes.
class ChildProcess {
public:
    using Environment = std::map<std::string, std::string>;

    /// `environment` is laid over our own. Throws `std::system_error` when the program cannot be started.
    ChildProcess(const std::vector<std::string>& arguments, const Environment& environment);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Waits for a line that contains `text`, from the line after the one found last; false when none comes
    /// in time or the program ends.
    bool waitForLine(std::string_view text, std::chrono::milliseconds timeout = std::chrono::seconds(20));
    /// Everything it wrote so far, or until its end once that was waited for.
    [[nodiscard]] const std::vector<std::string>& lines() const { return m_lines; }

    void signal(int number) const;
    /// The exit code, or minus the signal that ended it; absent when it does not end in time.
    std::optional<int> waitForExit(std::chrono::milliseconds timeout = std::chrono::seconds(20));
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
