#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Events recorded by any thread, one per line.
struct Transcript {
    void add(const std::string& line)
    {
        const std::lock_guard lock(mutex);
        lines.push_back(line);
        lineAdded.notify_one();
    }
    /// Waits for a line that starts with `beginning` and returns the rest of it.
    std::string after(const std::string& beginning)
    {
        std::unique_lock lock(mutex);
        while (lineAdded.wait_for(lock, std::chrono::seconds(20), [this] { return !lines.empty(); })) {
            const std::string line = lines.front();
            lines.erase(lines.begin());
            if (line.starts_with(beginning))
                return line.substr(beginning.size());
        }
        return "(nothing)";
    }

    /// Waits for `count` lines and returns all that have been added.
    std::vector<std::string> take(std::size_t count)
    {
        std::unique_lock lock(mutex);
        lineAdded.wait_for(lock, std::chrono::seconds(20), [&] { return lines.size() >= count; });
        return std::exchange(lines, {});
    }

    std::mutex mutex;
    std::condition_variable lineAdded;
    std::vector<std::string> lines;
};
