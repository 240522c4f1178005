#include "Platform/Linux/WorkerQueue.h"

#include <algorithm>
#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>
#include <utility>

namespace Platform::Linux {

namespace {
constexpr int utilityNiceness = 10;
}

WorkerQueue::WorkerQueue(const std::string& name, Priority priority)
    : m_thread([this, name, priority] {
          ::pthread_setname_np(::pthread_self(), name.c_str());
          // On Linux, this sets the niceness of the calling thread only.
          if (priority == Priority::utility)
              ::setpriority(PRIO_PROCESS, 0, std::max(utilityNiceness, ::getpriority(PRIO_PROCESS, 0)));
          run(priority);
      })
{}

WorkerQueue::~WorkerQueue()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
    }
    m_condition.notify_one();
    m_thread.join();
}

void WorkerQueue::async(Work work)
{
    {
        const std::lock_guard lock(m_mutex);
        m_waiting.push_back(std::move(work));
    }
    m_condition.notify_one();
}

void WorkerQueue::run(Priority priority)
{
    std::unique_lock lock(m_mutex);
    while (true) {
        m_condition.wait(lock, [this] { return m_isEnding || !m_waiting.empty(); });
        if (m_waiting.empty())
            return;
        Work work = std::move(m_waiting.front());
        m_waiting.pop_front();
        lock.unlock();
        work();
        work = nullptr;
        // The utility queue applies policies, and memory is needed for a large one only meanwhile.
        if (priority == Priority::utility)
            ::malloc_trim(0);
        lock.lock();
    }
}

} // namespace Platform::Linux
