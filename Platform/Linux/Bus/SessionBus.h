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

/// The connection to the user's session bus, with the thread that serves it. Adapters use it through a
/// `BusClient`.
///
/// Threads: `connection()` may be used from any; its callbacks run on the thread of the bus. Errors: a bus
/// that goes away is one line to the log, and nothing more arrives.
class SessionBus {
public:
    /// Throws `std::runtime_error` when there is no bus.
    explicit SessionBus(const AdapterLog& log);
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    [[nodiscard]] sdbus::IConnection& connection() { return *m_connection; }

    /// Delivers what arrives from now on.
    void start();
    /// After it no callback runs. The destructor calls it too.
    void stop();

private:
    void run();

    const AdapterLog& m_log;
    std::unique_ptr<sdbus::IConnection> m_connection;
    std::thread m_thread;
};

} // namespace Platform::Linux::Bus
