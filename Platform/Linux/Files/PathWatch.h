#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/Files/PolicyFragments.h"
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

/// Watches files, existing or not, and every folder and symbolic link on their paths: creation, writes,
/// replacement, moves, removal, and changes of owner or mode. Also watches all fragments in a folder.
///
/// A folder that this user may not read cannot be watched. Instead, its parent reports a change of its mode,
/// and a readable file in it is watched directly.
///
/// Threads: calls back on the watcher's thread. Ownership: must outlive the watcher. Errors: logs one line
/// while something cannot be watched.
class PathWatch {
public:
    /// Calls `onChange` whenever one of `files` (absolute paths) may have changed.
    PathWatch(FileSystemWatcher& watcher, std::vector<std::filesystem::path> files, const AdapterLog& log,
              std::function<void()> onChange);
    /// The same for the files and fragments of a managed configuration.
    PathWatch(FileSystemWatcher& watcher, PolicyPlaces places, const AdapterLog& log,
              std::function<void()> onChange);
    PathWatch(const PathWatch&) = delete;
    PathWatch& operator=(const PathWatch&) = delete;

private:
    /// What exists on all paths.
    struct Walk {
        std::vector<Storage::PathStep> steps;
        /// The folder of fragments, without symbolic links; empty if it is missing.
        std::filesystem::path fragments;
    };

    bool isRelevant(std::uint32_t mask, std::string_view name);
    void rearm(int handler);
    [[nodiscard]] Walk walkAll() const;
    std::vector<FileSystemWatcher::Target> targetsFor(const Walk& walk,
                                                      const std::set<std::filesystem::path>& unwatched);
    void report(const std::vector<FileSystemWatcher::Failure>& failures);

    FileSystemWatcher& m_watcher;
    const PolicyPlaces m_places;
    std::mutex m_mutex;
    ErrorLine m_errorLine;
    bool m_isArmed = false;
    /// Relevant entries of the watched folders, by name.
    std::set<std::string, std::less<>> m_watchedNames;
};

} // namespace Platform::Linux::Files
