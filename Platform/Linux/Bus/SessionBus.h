#pragma once

#include <memory>
#include <thread>

namespace sdbus {
class IConnection;
}

namespace Platform {
class AdapterLog;
}

namespace Platform::Linux::Bus {

/// The connection to the user's session bus and the thread that serves it. Adapters use it through a
/// `BusClient`.
///
/// Threads: `connection()` may be used from any thread; its callbacks run on the bus thread. Errors: when the
/// connection is lost, logs one line and delivers nothing more.
class SessionBus {
public:
    /// Throws `std::runtime_error` when there is no bus.
    explicit SessionBus(const AdapterLog& log);
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    [[nodiscard]] sdbus::IConnection& connection() { return *m_connection; }

    /// Starts the bus thread, which runs the callbacks.
    void start();
    /// Stops the bus thread; no callback runs afterwards. The destructor calls it too.
    void stop();

private:
    void run();

    const AdapterLog& m_log;
    std::unique_ptr<sdbus::IConnection> m_connection;
    std::thread m_thread;
};

} // namespace Platform::Linux::Bus
