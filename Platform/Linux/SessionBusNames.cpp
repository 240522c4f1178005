#include "Platform/Linux/SessionBusNames.h"

#include "Platform/Error.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <systemd/sd-bus.h>

namespace Platform::Linux {

namespace {

using SteadyClock = std::chrono::steady_clock;

struct BusDeleter {
    // Closes without flushing, which could block.
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;

struct MessageDeleter {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

/// Returns `result` unless it is an error, a negative number. Throws `SessionBusError`.
int requireSuccess(int result)
{
    if (result >= 0)
        return result;
    if (result == -ENOMEDIUM)
        throw SessionBusError("neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR gives its address");
    if (result == -ETIMEDOUT)
        throw SessionBusError("it does not respond");
    throw SessionBusError(Platform::errorText(-result));
}

/// Returns zero once the deadline has passed.
std::uint64_t microsecondsLeft(SteadyClock::time_point deadline)
{
    using std::chrono::microseconds;
    const auto left = std::chrono::ceil<microseconds>(deadline - SteadyClock::now()).count();
    return static_cast<std::uint64_t>(std::max<microseconds::rep>(left, 0));
}

/// Enforces the deadline when a bus accepts the connection but sends nothing; the library's timeout is
/// longer.
void waitUntilReady(sd_bus* bus, SteadyClock::time_point deadline)
{
    while (requireSuccess(sd_bus_is_ready(bus)) == 0) {
        if (requireSuccess(sd_bus_process(bus, nullptr)) != 0)
            continue;
        if (microsecondsLeft(deadline) == 0)
            throw SessionBusError("it does not respond");
        requireSuccess(sd_bus_wait(bus, microsecondsLeft(deadline)));
    }
}

std::set<std::string, std::less<>> busNames(sd_bus* bus, const char* method, SteadyClock::time_point deadline)
{
    sd_bus_message* message = nullptr;
    requireSuccess(sd_bus_message_new_method_call(bus, &message, "org.freedesktop.DBus",
                                                  "/org/freedesktop/DBus", "org.freedesktop.DBus", method));
    const Message call(message);
    // Zero would mean the library's default timeout.
    const std::uint64_t time = std::max<std::uint64_t>(microsecondsLeft(deadline), 1);
    requireSuccess(sd_bus_call(bus, call.get(), time, nullptr, &message));
    const Message reply(message);
    std::set<std::string, std::less<>> result;
    requireSuccess(sd_bus_message_enter_container(reply.get(), SD_BUS_TYPE_ARRAY, "s"));
    const char* name = nullptr;
    while (requireSuccess(sd_bus_message_read_basic(reply.get(), SD_BUS_TYPE_STRING, &name)) > 0)
        result.insert(name);
    return result;
}

} // namespace

SessionBusNames SessionBusNames::query(std::chrono::milliseconds timeout)
{
    const auto deadline = SteadyClock::now() + timeout;
    sd_bus* opened = nullptr;
    requireSuccess(sd_bus_open_user(&opened));
    const Bus bus(opened);
    waitUntilReady(bus.get(), deadline);
    SessionBusNames result;
    result.running = busNames(bus.get(), "ListNames", deadline);
    result.startable = busNames(bus.get(), "ListActivatableNames", deadline);
    return result;
}

} // namespace Platform::Linux
