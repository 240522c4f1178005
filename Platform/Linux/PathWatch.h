#pragma once

#include "Platform/Linux/FileSystemWatcher.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Platform::Linux {

/// Follows files, whether they are there or not, through every folder and link on the way to them: made,
/// written, replaced, moved, removed, given to somebody else.
///
/// Threads: tells on the watcher's thread. Ownership: must outlive the watcher.
class PathWatch {
public:
    /// Calls `onChange` whenever something happened that may have changed what one of `files`, absolute, is
    /// or holds.
    PathWatch(FileSystemWatcher& watcher, std::vector<std::filesystem::path> files,
              std::function<void()> onChange);
    PathWatch(const PathWatch&) = delete;
    PathWatch& operator=(const PathWatch&) = delete;

private:
    bool concernsUs(std::uint32_t mask, std::string_view name);
    void rearm(int handler);

    FileSystemWatcher& m_watcher;
    const std::vector<std::filesystem::path> m_files;
    std::mutex m_mutex;
    /// Names of the entries that matter in the watched folders.
    std::set<std::string, std::less<>> m_watchedNames;
};

} // namespace Platform::Linux
