#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Linux/Files/PathWatch.h"
#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Platform/PropertyList.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Platform::Linux::Files {

/// The managed configuration from the policy file.
///
/// The file is read when the dictionary is requested after a change, so a burst of changes costs one read. If
/// the file exists but cannot be read or parsed, the last valid dictionary stays in effect; if the file is
/// missing or not trusted, there is none.
///
/// Threads: any. Errors: logs one line for each new reason.
class ManagedPolicyFile {
public:
    ManagedPolicyFile(std::vector<std::filesystem::path> candidates, const AdapterLog& log);

    /// Returns the managed configuration, a dictionary, if any.
    std::optional<PropertyList> dictionary();

    /// Calls `onChange` on the watcher's thread whenever the dictionary may have changed. Call at most once,
    /// before the first `dictionary()`; this object must outlive the watcher.
    void watch(FileSystemWatcher& watcher, std::function<void()> onChange);

    /// Calls `onError` for each logged error, on the thread that logs it. Call at most once, before the first
    /// `dictionary()`.
    void onError(std::function<void(PolicyFileReading::State)> onError) { m_onError = std::move(onError); }

private:
    void load();
    void report(const PolicyFileReading& reading, std::string_view consequence);

    const std::vector<std::filesystem::path> m_candidates;
    const AdapterLog& m_log;
    /// Counts changes; `m_dictionary` is up to date if this equals `m_loadedGeneration`.
    std::atomic<std::uint64_t> m_generation = 1;

    std::mutex m_mutex;
    std::uint64_t m_loadedGeneration = 0;
    std::optional<PropertyList> m_dictionary;
    ErrorLine m_errorLine;

    std::function<void(PolicyFileReading::State)> m_onError;
    std::optional<PathWatch> m_watch;
};

} // namespace Platform::Linux::Files
