#include "Platform/Desktop/QtRunLoop.h"

#include "Platform/FatalError.h"

#include <QSocketNotifier>
#include <QTimer>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>
#include <utility>

namespace Platform::Desktop {

namespace {

class QtTimer final : public Timer {
public:
    QtTimer(std::chrono::milliseconds interval, TimerScheduler::Block block)
    {
        m_timer.setSingleShot(true);
        // The default rounds by up to 5 %.
        m_timer.setTimerType(Qt::PreciseTimer);
        // The block is copied out first: it may destroy this timer.
        QObject::connect(&m_timer, &QTimer::timeout, [block = std::move(block)] {
            const TimerScheduler::Block running = block;
            running();
        });
        m_timer.start(interval);
    }
    void invalidate() override { m_timer.stop(); }

private:
    QTimer m_timer;
};

constexpr std::array handledSignals{SIGTERM, SIGINT, SIGHUP, QtRunLoop::activationSignal};

// What a signal handler can reach.
std::atomic<int> s_pipeWriteEnd = -1;
std::atomic<bool> s_isQuitRequested = false;
std::atomic<bool> s_isActivationRequested = false;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void writeWakeUp(int pipeWriteEnd)
{
    // A full pipe wakes the reader up as well.
    [[maybe_unused]] const auto written = ::write(pipeWriteEnd, "", 1);
}

/// A handler may do little more than write to a pipe; see signal-safety(7).
void handleSignal(int signal)
{
    const int savedError = errno;
    (signal == QtRunLoop::activationSignal ? s_isActivationRequested : s_isQuitRequested) = true;
    writeWakeUp(s_pipeWriteEnd);
    errno = savedError;
}

} // namespace

QtRunLoop::QtRunLoop(std::unique_ptr<QCoreApplication> application) : m_application(std::move(application))
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        fatalError("there is no descriptor left for a pipe");
    m_pipeReadEnd = ends[0];
    m_pipeWriteEnd = ends[1];
    m_notifier = std::make_unique<QSocketNotifier>(m_pipeReadEnd, QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { handleWakeUp(); });

    s_pipeWriteEnd = m_pipeWriteEnd;
    s_isQuitRequested = false;
    s_isActivationRequested = false;
    struct sigaction action {};
    action.sa_handler = handleSignal;
    action.sa_flags = SA_RESTART;
    for (const int signal : handledSignals)
        ::sigaction(signal, &action, nullptr);
}

QtRunLoop::~QtRunLoop()
{
    for (const int signal : handledSignals)
        ::signal(signal, SIG_DFL);
    m_notifier.reset();
    ::close(m_pipeReadEnd);
    ::close(m_pipeWriteEnd);
}

void QtRunLoop::async(Work work)
{
    bool isFirst = false;
    {
        const std::lock_guard lock(m_mutex);
        isFirst = m_waiting.empty();
        m_waiting.push_back(std::move(work));
    }
    if (isFirst)
        wakeUp();
}

void QtRunLoop::wakeUp() const
{
    writeWakeUp(m_pipeWriteEnd);
}

void QtRunLoop::handleWakeUp()
{
    std::array<char, 64> bytes;
    while (::read(m_pipeReadEnd, bytes.data(), bytes.size()) > 0) {
    }
    runWaiting();
    if (!s_isQuitRequested && s_isActivationRequested.exchange(false))
        m_activationHandler();
    if (s_isQuitRequested)
        QCoreApplication::quit();
}

void QtRunLoop::runWaiting()
{
    std::deque<Work> due;
    {
        const std::lock_guard lock(m_mutex);
        due.swap(m_waiting);
    }
    for (; !due.empty() && !s_isQuitRequested; due.pop_front())
        due.front()();
    if (due.empty())
        return;
    const std::lock_guard lock(m_mutex);
    due.insert(due.end(), std::make_move_iterator(m_waiting.begin()),
               std::make_move_iterator(m_waiting.end()));
    m_waiting = std::move(due);
}

std::unique_ptr<Timer> QtRunLoop::scheduledTimer(std::chrono::milliseconds interval, Block block)
{
    return std::make_unique<QtTimer>(interval, std::move(block));
}

void QtRunLoop::run()
{
    wakeUp(); // For what a `quit()` has left in the queue.
    QCoreApplication::exec();
    s_isQuitRequested = false;
}

void QtRunLoop::quit() const
{
    s_isQuitRequested = true;
    wakeUp();
}

} // namespace Platform::Desktop
