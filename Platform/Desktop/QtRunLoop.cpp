#include "Platform/Desktop/QtRunLoop.h"

#include <QMetaObject>
#include <QTimer>

#include <iterator>

namespace Platform::Desktop {

namespace {

class QtTimer final : public Timer {
public:
    QtTimer(std::chrono::milliseconds interval, TimerScheduler::Block block)
    {
        m_timer.setSingleShot(true);
        // The default type is only accurate to 5 %.
        m_timer.setTimerType(Qt::PreciseTimer);
        // Copy the block before running it, because it may destroy this timer.
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

QtRunLoop::QtRunLoop(std::unique_ptr<QCoreApplication> application) : m_application(std::move(application)) {}

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

void QtRunLoop::wakeUp()
{
    QMetaObject::invokeMethod(
        m_application.get(), [this] { handleWakeUp(); }, Qt::QueuedConnection);
}

void QtRunLoop::handleWakeUp()
{
    runWaiting();
    if (m_isQuitRequested)
        QCoreApplication::quit();
}

void QtRunLoop::runWaiting()
{
    std::deque<Work> due;
    {
        const std::lock_guard lock(m_mutex);
        due.swap(m_waiting);
    }
    for (; !due.empty() && !m_isQuitRequested; due.pop_front())
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
    wakeUp(); // For the items that the last `quit()` left in the queue.
    QCoreApplication::exec();
    m_isQuitRequested = false;
}

void QtRunLoop::quit()
{
    m_isQuitRequested = true;
    wakeUp();
}

} // namespace Platform::Desktop
