#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace Platform::Linux {

/// The file of a running program. Source: proc(5), /proc/PID/exe.
struct ProgramFile {
    /// Where the file is, or was when it was replaced or removed.
    std::filesystem::path path;
    /// The process runs a file that has no name any more: an upgrade has replaced it, or it was removed.
    bool isReplaced = false;

    /// `process` is a process ID or "self". Absent when the process has ended or may not be inspected.
    static std::optional<ProgramFile> of(const std::string& process);
};

} // namespace Platform::Linux
