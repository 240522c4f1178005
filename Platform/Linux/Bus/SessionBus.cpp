#include "Platform/Linux/Bus/SessionBus.h"

#include "Platform/AdapterLog.h"

#include <sdbus-c++/sdbus-c++.h>

#include <pthread.h>
#include <stdexcept>
#include <utility>

namespace Platform::Linux::Bus {

SessionBus::SessionBus(const AdapterLog& log) : m_log(log)
{
    try {
        m_connection = sdbus::createSessionBusConnection();
    } catch (const sdbus::Error& error) {
        throw std::runtime_error("There is no session bus: " + error.getMessage());
    }
}

SessionBus::~SessionBus()
{
    stop();
}

void SessionBus::start()
{
    m_thread = std::thread([this] { run(); });
    ::pthread_setname_np(m_thread.native_handle(), "session bus");
}

void SessionBus::stop()
{
    if (!m_thread.joinable())
        return;
    m_connection->leaveEventLoop();
    m_thread.join();
}

void SessionBus::run()
{
    try {
        m_connection->enterEventLoop();
    } catch (const sdbus::Error& error) {
        m_log.error(
            "The connection to the session bus is lost; restart this application to receive pushes and "
            "show notifications again: " +
            error.getMessage());
    }
}

} // namespace Platform::Linux::Bus
