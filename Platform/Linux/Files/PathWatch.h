#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Storage/PathWalk.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Platform::Linux::Files {

/// Follows files, whether they exist or not, through every folder and link on the way to them: created,
/// written, replaced, moved, removed, changed in owner or mode.
///
/// A folder that this user may not read cannot be watched. Its parent reports when its mode changes, and a
/// file in it that may be read is watched itself.
///
/// Threads: calls back on the watcher's thread. Ownership: must outlive the watcher. Errors: one line to the
/// log while something cannot be watched.
class PathWatch {
public:
    /// Calls `onChange` whenever one of `files`, absolute, or its content may have changed.
    PathWatch(FileSystemWatcher& watcher, std::vector<std::filesystem::path> files, const AdapterLog& log,
              std::function<void()> onChange);
    PathWatch(const PathWatch&) = delete;
    PathWatch& operator=(const PathWatch&) = delete;

private:
    bool concernsUs(std::uint32_t mask, std::string_view name);
    void rearm(int handler);
    [[nodiscard]] std::vector<Storage::PathStep> walkAll() const;
    std::vector<FileSystemWatcher::Target> targetsFor(const std::vector<Storage::PathStep>& steps,
                                                      const std::set<std::filesystem::path>& unwatched);
    void report(const std::vector<FileSystemWatcher::Failure>& failures);

    FileSystemWatcher& m_watcher;
    const std::vector<std::filesystem::path> m_files;
    std::mutex m_mutex;
    ErrorLine m_errorLine;
    bool m_isArmed = false;
    /// Names of the entries that matter in the watched folders.
    std::set<std::string, std::less<>> m_watchedNames;
};

} // namespace Platform::Linux::Files
