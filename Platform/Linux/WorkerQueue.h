#pragma once

#include "Platform/DispatchQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace Platform::Linux {

/// A queue that runs its work on its own thread. The destructor first runs all scheduled work, so that
/// waiting coroutines complete.
class WorkerQueue final : public DispatchQueue {
public:
    enum class Priority { utility, default_ };

    /// `name` appears in process listings; at most 15 bytes.
    WorkerQueue(const std::string& name, Priority priority);
    ~WorkerQueue() override;
    WorkerQueue(const WorkerQueue&) = delete;
    WorkerQueue& operator=(const WorkerQueue&) = delete;

    void async(Work work) override;

private:
    void run(Priority priority);

    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::deque<Work> m_waiting;
    bool m_isEnding = false;
    std::thread m_thread;
};

} // namespace Platform::Linux
