#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace sdbus {
class IConnection;
}

namespace Platform {
class AdapterLog;
}

namespace Platform::Linux {

/// The connection to the user's session bus, with the thread that serves it.
///
/// Threads: `connection()` may be used from any; what arrives is delivered on the thread of the bus. Whoever
/// registers a callback must outlive `stop()`. Errors: a bus that goes away is one line to the log, and
/// nothing more arrives.
class SessionBus {
public:
    /// Throws `std::runtime_error` when there is no bus.
    explicit SessionBus(const AdapterLog& log);
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    [[nodiscard]] sdbus::IConnection& connection() { return *m_connection; }

    /// Told when a name gets or loses its owner. `match` selects the names: "arg0='a.b'" or
    /// "arg0namespace='a.b'". The owner is the unique name of the connection, empty for none. Lasts as long
    /// as the bus.
    void watchNames(std::string_view match,
                    std::function<void(const std::string& name, const std::string& owner)> callback);

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

} // namespace Platform::Linux
