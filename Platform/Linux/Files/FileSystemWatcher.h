#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace Platform::Linux::Files {

/// Reports file-system changes from one thread, which sleeps until there is one.
///
/// Threads: operations from any thread; handlers run on the watcher's thread, one at a time.
/// Errors: the constructor throws `std::system_error` when this user has reached the inotify instance limit.
/// Source: inotify(7), timerfd_create(2).
class FileSystemWatcher {
public:
    /// `mask` holds inotify(7) event bits. `name` is the changed entry of a watched folder, empty if the
    /// event is about the target itself. Periodic calls have the mask 0. Every handler receives
    /// `IN_Q_OVERFLOW`, after which anything may have changed.
    using Handler = std::function<void(std::uint32_t mask, std::string_view name)>;

    struct Target {
        std::string path;
        /// The inotify(7) events to report.
        std::uint32_t mask;
    };

    /// A target that exists but cannot be watched.
    struct Failure {
        std::string path;
        /// The errno of inotify_add_watch(2), such as EACCES or ENOSPC.
        int error;
    };

    FileSystemWatcher();
    ~FileSystemWatcher();
    FileSystemWatcher(const FileSystemWatcher&) = delete;
    FileSystemWatcher& operator=(const FileSystemWatcher&) = delete;

    /// Adds a handler for the life of the watcher and returns its number for `setTargets`.
    int addHandler(Handler handler);

    /// Replaces the handler's targets, in order. Skips targets that do not exist and returns those that
    /// cannot be watched. If several targets name the same file or folder, their events are combined. Two
    /// handlers must not watch the same file or folder. Events of the old targets may be lost: check for
    /// changes after the call.
    std::vector<Failure> setTargets(int handler, const std::vector<Target>& targets);

    /// Starts or ends periodic calls of the handler, for files without events. They come at multiples of
    /// `interval` since the system was started, so that all users' processes wake up together, and after a
    /// suspend during which one was due. All handlers use the interval given last.
    void setPeriodic(int handler, bool isPeriodic, std::chrono::milliseconds interval);

private:
    void run();
    void deliver(std::string_view events);
    void deliverPeriodically();

    Storage::FileDescriptor m_inotify;
    Storage::FileDescriptor m_ending;
    /// Disarmed while `m_periodic` is empty.
    Storage::FileDescriptor m_timer;
    std::mutex m_mutex;
    std::vector<std::shared_ptr<const Handler>> m_handlers;
    /// Handler numbers by watch descriptor.
    std::map<int, int> m_handlerByWatch;
    /// Numbers of the handlers with periodic calls.
    std::set<int> m_periodic;
    std::thread m_thread;
};

} // namespace Platform::Linux::Files
