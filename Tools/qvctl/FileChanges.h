#pragma once

#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/Files/PathWatch.h"
#include "Platform/Storage/FileDescriptor.h"

#include <optional>

namespace Platform {
class AdapterLog;
}

namespace Qvctl {

/// Changes of the policy or of other files, as a descriptor for poll(2).
///
/// Threads: construct after `LiveSession`. Ownership: `log` must outlive this. Errors: throws
/// `std::system_error`.
class FileChanges {
public:
    FileChanges(Platform::Linux::Files::PolicyPlaces places, const Platform::AdapterLog& log);

    /// Readable once a file has changed since construction or the last `reset()`.
    [[nodiscard]] int descriptor() const { return m_event.get(); }
    /// Forgets the changes until now. Call it before reading the files, so that no change is missed.
    void reset() const;

private:
    Platform::Storage::FileDescriptor m_event;
    std::optional<Platform::Linux::Files::PathWatch> m_watch;
    /// Declared last: destroyed before the objects that it calls.
    Platform::Linux::Files::FileSystemWatcher m_watcher;
};

} // namespace Qvctl
