#include "Tools/Tour/WindowDriver/FrameMeter.h"

#include <algorithm>
#include <mutex>
#include <optional>

namespace WindowDriver {

using Clock = std::chrono::steady_clock;

class FrameMeter::Record {
public:
    void add()
    {
        const auto now = Clock::now();
        const std::lock_guard lock(m_mutex);
        ++m_count;
        ++m_reading.count;
        if (m_last)
            m_reading.longestGap = std::max(m_reading.longestGap, now - *m_last);
        m_last = now;
    }
    void start()
    {
        const std::lock_guard lock(m_mutex);
        m_reading = {};
        m_last.reset();
        m_begin = Clock::now();
    }
    Reading reading()
    {
        const std::lock_guard lock(m_mutex);
        m_reading.period = Clock::now() - m_begin;
        return m_reading;
    }
    std::int64_t count()
    {
        const std::lock_guard lock(m_mutex);
        return m_count;
    }

private:
    std::mutex m_mutex;
    std::int64_t m_count = 0;
    Reading m_reading;
    std::optional<Clock::time_point> m_last;
    Clock::time_point m_begin = Clock::now();
};

FrameMeter::FrameMeter() : m_record(std::make_shared<Record>()) {}

FrameMeter::~FrameMeter()
{
    QObject::disconnect(m_connection);
}

void FrameMeter::follow(QQuickWindow& window)
{
    if (m_window == &window)
        return;
    QObject::disconnect(m_connection);
    m_window = &window;
    // The record outlives this object for as long as a frame on the other thread needs it.
    m_connection = QObject::connect(
        &window, &QQuickWindow::frameSwapped, &window, [record = m_record] { record->add(); },
        Qt::DirectConnection);
}

std::int64_t FrameMeter::count() const
{
    return m_record->count();
}

void FrameMeter::startReading()
{
    m_record->start();
}

FrameMeter::Reading FrameMeter::reading() const
{
    return m_record->reading();
}

} // namespace WindowDriver
