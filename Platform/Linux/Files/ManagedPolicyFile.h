#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Linux/Files/PathWatch.h"
#include "Platform/Linux/Files/PolicyFragments.h"
#include "Platform/PropertyList.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Platform::Linux::Files {

/// The managed configuration from the policy file and its fragments.
///
/// The files are read when the dictionary is requested after a change, so a burst of changes costs one read.
/// A file that exists but cannot be used keeps its last valid content. A file that was never valid has none:
/// until all files were usable once, there is no dictionary, because the keys of an earlier run would be
/// lost; after that, it adds no keys. A policy file that is not trusted counts as missing, and then there is
/// no dictionary, even if there are fragments.
///
/// Threads: any. Errors: logs one line for each new reason.
class ManagedPolicyFile {
public:
    ManagedPolicyFile(PolicyPlaces places, const AdapterLog& log);

    /// Returns the managed configuration, a dictionary, if any.
    std::optional<PropertyList> dictionary();

    /// Reads the files again when the dictionary is requested next, whether or not a change was noticed.
    void reload();

    /// Calls `onChange` on the watcher's thread whenever the dictionary may have changed. Call at most once,
    /// before the first `dictionary()`; this object must outlive the watcher.
    void watch(FileSystemWatcher& watcher, std::function<void()> onChange);

    /// Calls `onError` for each logged error, on the thread that logs it. Call at most once, before the first
    /// `dictionary()`.
    void onError(std::function<void(PolicyFileReading::State)> onError) { m_onError = std::move(onError); }

private:
    /// A file of the configuration.
    struct Part {
        explicit Part(const AdapterLog& log) : errorLine(log) {}
        /// The last valid content, a dictionary.
        std::optional<PropertyList> content;
        ErrorLine errorLine;
    };

    void load();
    bool loadFile();
    bool loadFragments();
    bool loadFragment(const PolicyFileReading& reading);
    [[nodiscard]] std::optional<PropertyList> combinedParts() const;
    void report(ErrorLine& errorLine, const PolicyFileReading& reading, std::string_view consequence);
    [[nodiscard]] const char* consequence(bool isKnown) const;

    const PolicyPlaces m_places;
    const AdapterLog& m_log;
    /// Counts changes; `m_dictionary` is up to date if this equals `m_loadedGeneration`.
    std::atomic<std::uint64_t> m_generation = 1;

    std::mutex m_mutex;
    std::uint64_t m_loadedGeneration = 0;
    std::optional<PropertyList> m_dictionary;
    Part m_file;
    bool m_isFileTrusted = true;
    /// By path.
    std::map<std::string, Part> m_fragments;
    ErrorLine m_folderLine;
    /// Whether the folder was read.
    bool m_isFolderKnown = false;
    /// Whether all files that existed were usable once.
    bool m_wasComplete = false;

    std::function<void(PolicyFileReading::State)> m_onError;
    std::optional<PathWatch> m_watch;
};

} // namespace Platform::Linux::Files
