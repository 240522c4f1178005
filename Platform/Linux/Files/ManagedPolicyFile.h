#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Linux/Files/PathWatch.h"
#include "Platform/PropertyList.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Platform::Linux::Files {

struct PolicyFileReading;

/// The dictionary that device management delivers as a file.
///
/// The file is read when the dictionary is asked for and something happened to the file since, so a burst of
/// changes costs one reading. A file that is there and cannot be understood leaves the last good dictionary
/// in force; a file that is missing, or not to be believed, leaves none.
///
/// Threads: any. Errors: one line to the log for each new reason.
class ManagedPolicyFile {
public:
    ManagedPolicyFile(std::vector<std::filesystem::path> candidates, const AdapterLog& log);

    /// Absent when there is no managed configuration. The value is a dictionary.
    std::optional<PropertyList> dictionary();

    /// Calls `onChange`, on the watcher's thread, whenever something happened on the way to a candidate that
    /// may have changed the dictionary. Once, before the first `dictionary()`; this object must outlive the
    /// watcher.
    void watch(FileSystemWatcher& watcher, std::function<void()> onChange);

private:
    void load();
    void report(const PolicyFileReading& reading, std::string_view consequence);

    const std::vector<std::filesystem::path> m_candidates;
    const AdapterLog& m_log;
    /// Counts what happened; the dictionary is of `m_loadedGeneration`.
    std::atomic<std::uint64_t> m_generation = 1;

    std::mutex m_mutex;
    std::uint64_t m_loadedGeneration = 0;
    std::optional<PropertyList> m_dictionary;
    ErrorLine m_errorLine;

    std::optional<PathWatch> m_watch;
};

} // namespace Platform::Linux::Files
