#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/Files/PolicyFragments.h"
#include "Platform/Linux/Files/RemoteFileSystem.h"
#include "Platform/Storage/PathWalk.h"

#include <chrono>
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
/// Files of a managed configuration on a file system without events, such as NFS, are checked periodically.
///
/// A folder that this user may not read cannot be watched. Instead, its parent reports a change of its mode,
/// and a readable file in it is watched directly.
///
/// Threads: calls back on the watcher's thread. Ownership: must outlive the watcher. Errors: logs one line
/// while something cannot be watched.
class PathWatch {
public:
    /// How files without change events are checked.
    struct PeriodicCheck {
        /// Whether one of the existing steps is on a file system without events; null for no check.
        bool (*isNeeded)(const std::vector<Storage::PathStep>& steps) = nullptr;
        std::chrono::milliseconds interval = {};
    };

    /// Calls `onChange` whenever one of `files` (absolute paths) may have changed.
    PathWatch(FileSystemWatcher& watcher, std::vector<std::filesystem::path> files, const AdapterLog& log,
              std::function<void()> onChange);
    /// The same for the files and fragments of a managed configuration.
    PathWatch(FileSystemWatcher& watcher, PolicyPlaces places, const AdapterLog& log,
              std::function<void()> onChange, PeriodicCheck check = {hasRemoteFiles, remoteCheckInterval});
    PathWatch(const PathWatch&) = delete;
    PathWatch& operator=(const PathWatch&) = delete;

    /// Watches what is at the paths now. Any thread.
    void renew() { rearm(); }

private:
    /// What exists on all paths.
    struct Walk {
        std::vector<Storage::PathStep> steps;
        /// The folder of fragments, without symbolic links; empty if it is missing.
        std::filesystem::path fragments;
    };

    bool isRelevant(std::string_view name);
    bool hasStatusChanged();
    void rearm();
    [[nodiscard]] Walk walkAll() const;
    std::vector<FileSystemWatcher::Target> targetsFor(const Walk& walk,
                                                      const std::set<std::filesystem::path>& unwatched);
    void report(const std::vector<FileSystemWatcher::Failure>& failures);

    FileSystemWatcher& m_watcher;
    const PolicyPlaces m_places;
    const PeriodicCheck m_check;
    /// The number of the handler.
    int m_handler = -1;
    std::mutex m_mutex;
    ErrorLine m_errorLine;
    bool m_isArmed = false;
    /// The status of all files at the last periodic check, or when it started.
    std::string m_status;
    /// Relevant entries of the watched folders, by name.
    std::set<std::string, std::less<>> m_watchedNames;
};

} // namespace Platform::Linux::Files
