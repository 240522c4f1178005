#pragma once

#include "Platform/AdapterLog.h"

#include <mutex>
#include <utility>
#include <vector>

/// Records every log entry. Threads: any.
class RecordingUnifiedLog final : public Platform::UnifiedLog {
public:
    /// The log of the adapters, which writes to this one.
    const Platform::AdapterLog adapterLog{*this, "test"};

    struct Entry {
        std::string subsystem;
        std::string category;
        Platform::LogType type;
        Platform::LogVisibility visibility;
        std::string line;
    };

    void write(const Platform::LogHandle& handle, Platform::LogType type, Platform::LogVisibility visibility,
               std::string_view line) noexcept override
    {
        const std::lock_guard lock(m_mutex);
        m_entries.push_back({handle.subsystem, handle.category, type, visibility, std::string(line)});
    }

    /// Returns and removes the recorded entries.
    std::vector<Entry> takeEntries()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_entries, {});
    }
    /// Like `takeEntries()`, but returns only the lines.
    std::vector<std::string> takeLines()
    {
        std::vector<std::string> lines;
        for (Entry& entry : takeEntries())
            lines.push_back(std::move(entry.line));
        return lines;
    }
    /// Returns a line "TYPE CATEGORY LINE" for each entry.
    std::string takeText()
    {
        constexpr const char* types[] = {"debug ", "info ", "default ", "error ", "fault "};
        std::string text;
        for (const Entry& entry : takeEntries())
            text += types[static_cast<int>(entry.type)] + entry.category + " " + entry.line + "\n";
        return text;
    }

private:
    std::mutex m_mutex;
    std::vector<Entry> m_entries;
};
