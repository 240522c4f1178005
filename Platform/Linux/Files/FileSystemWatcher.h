#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace Platform::Linux::Files {

/// Tells of changes in the file system, from one thread, without ever waking up otherwise.
///
/// Threads: operations from any thread; handlers run on the watcher's thread, one at a time.
/// Errors: the constructor throws `std::system_error` when the system grants no more watchers to this user.
/// Source: inotify(7).
class FileSystemWatcher {
public:
    /// `name` is the entry of the watched folder concerned, empty when it is the watched thing itself. `mask`
    /// is that of inotify(7); after `IN_Q_OVERFLOW`, which every handler is given, anything may have
    /// happened.
    using Handler = std::function<void(std::uint32_t mask, std::string_view name)>;

    struct Target {
        std::string path;
        /// Of inotify(7).
        std::uint32_t mask;
    };

    /// A target that exists and cannot be watched.
    struct Failure {
        std::string path;
        /// EACCES, ENOSPC and so on, of inotify_add_watch(2).
        int error;
    };

    FileSystemWatcher();
    ~FileSystemWatcher();
    FileSystemWatcher(const FileSystemWatcher&) = delete;
    FileSystemWatcher& operator=(const FileSystemWatcher&) = delete;

    /// Calls `handler` for what happens to targets named later. For the life of the watcher.
    int addHandler(Handler handler);

    /// Replaces the targets of the handler of that number, in their order. Targets that do not exist are left
    /// out, and those that cannot be watched are returned. A file or folder that several targets name is
    /// watched for the events of all of them. No two handlers may watch the same file or folder. Events of
    /// the old targets may be lost: check for changes after the call.
    std::vector<Failure> setTargets(int handler, const std::vector<Target>& targets);

private:
    void run();
    void deliver(std::string_view events);

    Storage::FileDescriptor m_inotify;
    Storage::FileDescriptor m_ending;
    std::mutex m_mutex;
    std::vector<std::shared_ptr<const Handler>> m_handlers;
    /// The handler's number, by watch descriptor.
    std::map<int, int> m_handlerByWatch;
    std::thread m_thread;
};

} // namespace Platform::Linux::Files
