#include "Platform/Desktop/QtRunLoop.h"

#include "Platform/FatalError.h"

#include <QSocketNotifier>
#include <QTimer>

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
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

} // namespace

/// Turns the signals that end a process into an event: a handler may do little more than write to a pipe.
class QtRunLoop::TerminationSignals {
public:
    explicit TerminationSignals(std::function<void()> onSignal)
    {
        if (::pipe2(s_pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0)
            fatalError("there is no descriptor left for a pipe");
        m_notifier = std::make_unique<QSocketNotifier>(s_pipe[0], QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [onSignal = std::move(onSignal)] {
            char drained = 0;
            while (::read(s_pipe[0], &drained, 1) > 0) {
            }
            onSignal();
        });
        struct sigaction action {};
        action.sa_handler = [](int) {
            const int savedError = errno;
            [[maybe_unused]] const auto written = ::write(s_pipe[1], "", 1);
            errno = savedError;
        };
        action.sa_flags = SA_RESTART;
        for (const int signal : {SIGTERM, SIGINT, SIGHUP})
            ::sigaction(signal, &action, nullptr);
    }

private:
    inline static std::array<int, 2> s_pipe{};
    std::unique_ptr<QSocketNotifier> m_notifier;
};

QtRunLoop::QtRunLoop(int& argc, char** argv)
    : m_application(argc, argv),
      m_terminationSignals(std::make_unique<TerminationSignals>([this] { quit(); }))
{}

QtRunLoop::~QtRunLoop() = default;

void QtRunLoop::async(Work work)
{
    QMetaObject::invokeMethod(&m_application, std::move(work), Qt::QueuedConnection);
}

std::unique_ptr<Timer> QtRunLoop::scheduledTimer(std::chrono::milliseconds interval, Block block)
{
    return std::make_unique<QtTimer>(interval, std::move(block));
}

void QtRunLoop::run()
{
    QCoreApplication::exec();
}

void QtRunLoop::quit()
{
    async([] { QCoreApplication::quit(); });
}

} // namespace Platform::Desktop
