#include "Tools/qvctl/SessionBusNames.h"

#include "Platform/Error.h"
#include "Tools/qvctl/Deadline.h"

#include <fmt/format.h>

#include <cerrno>
#include <memory>
#include <systemd/sd-bus.h>

namespace Qvctl {

namespace {

using std::chrono::microseconds;

struct BusDeleter {
    // Does not wait for what has not been sent.
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;

struct MessageDeleter {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

/// Answers what the library does; throws for its errors, which are negative.
int require(int result)
{
    if (result >= 0)
        return result;
    if (result == -ENOMEDIUM)
        throw SessionBusError("neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR leads to it");
    if (result == -ETIMEDOUT)
        throw SessionBusError("it does not answer");
    throw SessionBusError(Platform::errorText(-result));
}

std::uint64_t microsecondsLeft(const Deadline& deadline)
{
    return static_cast<std::uint64_t>(microseconds(deadline.remaining()).count());
}

/// The library itself would be patient with a bus that lets us in and then is silent.
void waitUntilReady(sd_bus* bus, const Deadline& deadline)
{
    while (require(sd_bus_is_ready(bus)) == 0) {
        if (require(sd_bus_process(bus, nullptr)) != 0)
            continue;
        if (deadline.remaining().count() == 0)
            throw SessionBusError("it does not answer");
        require(sd_bus_wait(bus, microsecondsLeft(deadline)));
    }
}

std::set<std::string, std::less<>> names(sd_bus* bus, const char* method, const Deadline& deadline)
{
    sd_bus_message* message = nullptr;
    require(sd_bus_message_new_method_call(bus, &message, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                           "org.freedesktop.DBus", method));
    const Message call(message);
    // Zero would stand for the library's own time limit.
    const std::uint64_t time = std::max<std::uint64_t>(microsecondsLeft(deadline), 1);
    require(sd_bus_call(bus, call.get(), time, nullptr, &message));
    const Message reply(message);
    std::set<std::string, std::less<>> result;
    require(sd_bus_message_enter_container(reply.get(), SD_BUS_TYPE_ARRAY, "s"));
    const char* name = nullptr;
    while (require(sd_bus_message_read_basic(reply.get(), SD_BUS_TYPE_STRING, &name)) > 0)
        result.insert(name);
    return result;
}

} // namespace

SessionBusNames SessionBusNames::ask(std::chrono::milliseconds timeout)
{
    const Deadline deadline(timeout);
    sd_bus* opened = nullptr;
    require(sd_bus_open_user(&opened));
    const Bus bus(opened);
    waitUntilReady(bus.get(), deadline);
    SessionBusNames result;
    result.running = names(bus.get(), "ListNames", deadline);
    result.startable = names(bus.get(), "ListActivatableNames", deadline);
    return result;
}

} // namespace Qvctl
