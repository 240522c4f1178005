#include "Platform/Desktop/QtRunLoop.h"

#include "Platform/FatalError.h"

#include <QSocketNotifier>
#include <QTimer>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <string>
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

/// Why the main thread is woken.
enum class Wake : char { toWork = 'w', toComeToTheFront = 'f', toQuit = 'q' };

/// Where a signal handler finds the pipe.
std::atomic<int> s_signalledPipe = -1;

void wakeUp(int pipeWriteEnd, Wake reason)
{
    // A full pipe holds reasons enough to wake up.
    [[maybe_unused]] const auto written = ::write(pipeWriteEnd, &reason, 1);
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
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { runWaiting(); });

    s_signalledPipe = m_pipeWriteEnd;
    struct sigaction action {};
    // A handler may do little more than write to a pipe; see signal-safety(7).
    action.sa_handler = [](int signal) {
        const int savedError = errno;
        wakeUp(s_signalledPipe, signal == activationSignal ? Wake::toComeToTheFront : Wake::toQuit);
        errno = savedError;
    };
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
        wakeUp(m_pipeWriteEnd, Wake::toWork);
}

void QtRunLoop::runWaiting()
{
    std::array<char, 64> reasons;
    std::string seen;
    for (ssize_t count = 0; (count = ::read(m_pipeReadEnd, reasons.data(), reasons.size())) > 0;)
        seen.append(reasons.data(), static_cast<std::size_t>(count));
    const auto isSeen = [&](Wake reason) {
        return seen.find(static_cast<char>(reason)) != std::string::npos;
    };
    std::deque<Work> due;
    {
        const std::lock_guard lock(m_mutex);
        due.swap(m_waiting);
    }
    for (const Work& work : due)
        work();
    if (isSeen(Wake::toComeToTheFront))
        m_activationHandler();
    if (isSeen(Wake::toQuit))
        QCoreApplication::quit();
}

std::unique_ptr<Timer> QtRunLoop::scheduledTimer(std::chrono::milliseconds interval, Block block)
{
    return std::make_unique<QtTimer>(interval, std::move(block));
}

void QtRunLoop::run()
{
    QCoreApplication::exec();
}

void QtRunLoop::quit() const
{
    wakeUp(m_pipeWriteEnd, Wake::toQuit);
}

} // namespace Platform::Desktop
