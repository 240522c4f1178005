#pragma once

#include <QMetaObject>
#include <QPointer>
#include <QQuickWindow>

#include <chrono>
#include <cstdint>
#include <memory>

namespace WindowDriver {

/// Counts the frames that a window has shown.
///
/// Threads: main. What it counts with also runs on the thread that renders, so that a busy main thread delays
/// no time stamp.
class FrameMeter {
public:
    using Duration = std::chrono::steady_clock::duration;

    struct Reading {
        std::int64_t count = 0;
        Duration period{};
        /// Between two frames of the period; zero with fewer than two.
        Duration longestGap{};
    };

    FrameMeter();
    ~FrameMeter();
    FrameMeter(const FrameMeter&) = delete;
    FrameMeter& operator=(const FrameMeter&) = delete;

    /// Counts the frames of this window from now on, and of no other.
    void follow(QQuickWindow& window);
    /// Ever.
    [[nodiscard]] std::int64_t count() const;

    void startReading();
    /// Since the reading was started last, or since the meter was made.
    [[nodiscard]] Reading reading() const;

private:
    class Record;

    const std::shared_ptr<Record> m_record;
    QPointer<QQuickWindow> m_window;
    QMetaObject::Connection m_connection;
};

} // namespace WindowDriver
