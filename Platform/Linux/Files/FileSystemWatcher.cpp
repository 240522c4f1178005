#include "Platform/Linux/Files/FileSystemWatcher.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <system_error>
#include <unistd.h>

namespace Platform::Linux::Files {

namespace {

using std::chrono::milliseconds;

timespec timespecOf(milliseconds time)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return {seconds.count(), static_cast<long>(std::chrono::nanoseconds(time - seconds).count())};
}

/// The next multiple of `interval` since the system was started.
milliseconds nextMultiple(milliseconds interval)
{
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    const milliseconds elapsed = std::chrono::seconds(now.tv_sec) + milliseconds(now.tv_nsec / 1'000'000);
    return interval * (elapsed / interval + 1);
}

} // namespace

FileSystemWatcher::FileSystemWatcher()
    : m_inotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      m_ending(::eventfd(0, EFD_CLOEXEC)),
      m_timer(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK))
{
    if (!m_inotify || !m_ending || !m_timer)
        throw std::system_error(errno, std::generic_category(), "inotify");
    m_thread = std::thread([this] {
        ::pthread_setname_np(::pthread_self(), "file watcher");
        run();
    });
}

FileSystemWatcher::~FileSystemWatcher()
{
    ::eventfd_write(m_ending.get(), 1);
    m_thread.join();
}

int FileSystemWatcher::addHandler(Handler handler)
{
    const std::lock_guard lock(m_mutex);
    m_handlers.push_back(std::make_shared<const Handler>(std::move(handler)));
    return static_cast<int>(m_handlers.size() - 1);
}

std::vector<FileSystemWatcher::Failure> FileSystemWatcher::setTargets(int handler,
                                                                      const std::vector<Target>& targets)
{
    std::vector<Failure> failures;
    const std::lock_guard lock(m_mutex);
    for (auto watch = m_handlerByWatch.begin(); watch != m_handlerByWatch.end();) {
        if (watch->second == handler) {
            ::inotify_rm_watch(m_inotify.get(), watch->first);
            watch = m_handlerByWatch.erase(watch);
        } else {
            ++watch;
        }
    }
    for (const Target& target : targets) {
        const int watch =
            ::inotify_add_watch(m_inotify.get(), target.path.c_str(), target.mask | IN_MASK_ADD);
        if (watch >= 0)
            m_handlerByWatch[watch] = handler;
        else if (errno != ENOENT && errno != ENOTDIR)
            failures.push_back({target.path, errno});
    }
    return failures;
}

void FileSystemWatcher::setPeriodic(int handler, bool isPeriodic, milliseconds interval)
{
    const std::lock_guard lock(m_mutex);
    const bool isChanged = isPeriodic ? m_periodic.insert(handler).second : m_periodic.erase(handler) > 0;
    if (!isChanged)
        return;
    itimerspec times{};
    if (!m_periodic.empty())
        times = {.it_interval = timespecOf(interval), .it_value = timespecOf(nextMultiple(interval))};
    ::timerfd_settime(m_timer.get(), TFD_TIMER_ABSTIME, &times, nullptr);
}

void FileSystemWatcher::run()
{
    alignas(inotify_event) std::array<char, 16384> buffer;
    std::array<pollfd, 3> waiting{
        {{m_inotify.get(), POLLIN, 0}, {m_ending.get(), POLLIN, 0}, {m_timer.get(), POLLIN, 0}}};
    while (true) {
        if (::poll(waiting.data(), waiting.size(), -1) < 0 && errno != EINTR)
            return;
        if (waiting[1].revents != 0)
            return;
        const ssize_t length = ::read(m_inotify.get(), buffer.data(), buffer.size());
        if (length > 0)
            deliver({buffer.data(), static_cast<std::size_t>(length)});
        std::uint64_t expirationCount = 0;
        if (::read(m_timer.get(), &expirationCount, sizeof expirationCount) > 0)
            deliverPeriodically();
    }
}

void FileSystemWatcher::deliverPeriodically()
{
    std::vector<std::shared_ptr<const Handler>> receivers;
    {
        const std::lock_guard lock(m_mutex);
        for (const int handler : m_periodic)
            receivers.push_back(m_handlers.at(static_cast<std::size_t>(handler)));
    }
    for (const auto& handler : receivers)
        (*handler)(0, {});
}

void FileSystemWatcher::deliver(std::string_view events)
{
    while (!events.empty()) {
        inotify_event event;
        std::memcpy(&event, events.data(), sizeof event);
        // The name is padded with NUL bytes.
        const std::string_view name = event.len > 0 ? events.data() + sizeof event : std::string_view();
        events.remove_prefix(sizeof event + event.len);

        std::vector<std::shared_ptr<const Handler>> receivers;
        {
            const std::lock_guard lock(m_mutex);
            if ((event.mask & IN_Q_OVERFLOW) != 0)
                receivers = m_handlers;
            else if (const auto found = m_handlerByWatch.find(event.wd); found != m_handlerByWatch.end())
                receivers.push_back(m_handlers.at(static_cast<std::size_t>(found->second)));
        }
        for (const auto& handler : receivers)
            (*handler)(event.mask, name);
    }
}

} // namespace Platform::Linux::Files
