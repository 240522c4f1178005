#include "Platform/Linux/Bus/BusClient.h"

#include "Platform/Linux/Bus/SDBusVersions.h"
#include "Platform/Linux/Bus/SessionBus.h"

#include <limits>
#include <stdexcept>

namespace Platform::Linux::Bus {

namespace {

#if __has_include(<sdbus-c++/VTableItems.h>)
template <typename Callback>
sdbus::Slot matchSlot(sdbus::IConnection& connection, const std::string& rule, Callback callback)
{
    return connection.addMatch(rule, std::move(callback), sdbus::return_slot);
}

void registerMethod(sdbus::IObject& object, const BusMethod& method, const sdbus::Flags& flags,
                    sdbus::method_callback callback)
{
    object
        .addVTable(sdbus::MethodVTableItem{MethodName(method.name),
                                           sdbus::Signature(method.inputSignature),
                                           {},
                                           sdbus::Signature(method.outputSignature),
                                           {},
                                           std::move(callback),
                                           flags})
        .forInterface(InterfaceName(method.interface));
}
#else
template <typename Callback>
sdbus::Slot matchSlot(sdbus::IConnection& connection, const std::string& rule, Callback callback)
{
    return connection.addMatch(rule, std::move(callback));
}

void registerMethod(sdbus::IObject& object, const BusMethod& method, const sdbus::Flags& flags,
                    sdbus::method_callback callback)
{
    object.registerMethod(method.interface, method.name, method.inputSignature, method.outputSignature,
                          std::move(callback), flags);
    object.finishRegistration();
}
#endif

BusError busError(const sdbus::Error& error)
{
    return {error.getName(), error.getMessage()};
}

} // namespace

void BusRequest::fail(const std::string& reason) const
{
    answer([&](const sdbus::MethodCall& call) {
        return call.createErrorReply(sdbus::Error(ErrorName("org.freedesktop.DBus.Error.Failed"), reason));
    });
}

void BusRequest::answer(const std::function<sdbus::MethodReply(const sdbus::MethodCall&)>& makeReply) const
{
    const std::lock_guard lock(m_state->mutex);
    if (!m_state->call)
        return;
    try {
        makeReply(*m_state->call).send();
    } catch (const sdbus::Error&) {
        // The connection is lost, so the caller can no longer receive the reply.
    }
    m_state->call.reset();
}

BusClient::~BusClient()
{
    m_objects.clear();
    for (const auto& each : m_requests) {
        if (const auto state = each.lock()) {
            const std::lock_guard lock(state->mutex);
            state->call.reset();
        }
    }
}

void BusClient::watchNames(
    std::string_view match,
    const std::function<void(const std::string& name, const std::string& owner)>& handler)
{
    addMatch(rule({busName, busPath, busName, "NameOwnerChanged"}).append(",").append(match),
             [handler](sdbus::Message& message) -> Work {
                 // A peer can send signals directly to this connection, bypassing the match rule.
                 auto names = readBusMessage<std::tuple<std::string, std::string, std::string>>(message);
                 if (!names || std::string(message.getSender()) != busName)
                     return {};
                 return [handler, name = std::get<0>(*names), owner = std::get<2>(*names)] {
                     handler(name, owner);
                 };
             });
}

bool BusClient::claimName(const std::string& name)
{
    if (m_names.contains(name))
        return true;
    try {
        m_bus.connection().requestName(ServiceName(name));
        m_names.insert(name);
    } catch (const sdbus::Error& error) {
        return error.getName() != "org.freedesktop.DBus.Error.FileExists";
    }
    return true;
}

void BusClient::exportMethod(const std::string& path, const BusMethod& method)
{
    try {
        sdbus::Flags flags;
        if (!method.hasReply)
            flags.set(sdbus::Flags::METHOD_NO_REPLY);
        auto object = sdbus::createObject(m_bus.connection(), ObjectPath(path));
        registerMethod(*object, method, flags,
                       [this, handler = method.handler](const sdbus::MethodCall& call) {
                           post(handler(request(call)));
                       });
        m_objects.push_back(std::move(object));
    } catch (const sdbus::Error& error) {
        throw std::runtime_error(error.getMessage());
    }
}

BusRequest BusClient::request(const sdbus::MethodCall& call)
{
    auto state = std::make_shared<BusRequest::State>(call);
    std::erase_if(m_requests, [](const auto& each) { return each.expired(); });
    m_requests.push_back(state);
    return BusRequest(std::move(state));
}

std::string BusClient::rule(const BusSignal& signal)
{
    return "type='signal',sender='" + signal.service + "',path='" + signal.path + "',interface='" +
           signal.interface + "',member='" + signal.member + "'";
}

void BusClient::send(const BusCall& call, const Write& write, const ReadReply& read)
{
    // If the reply arrives before the call is fully sent, the library can keep its record of the call until
    // the proxy is destroyed. So each call gets its own proxy, destroyed with the reply.
    const std::uint64_t number = ++m_lastCall;
    const auto deliver = [this, number, read](sdbus::Message* reply, const std::optional<BusError>& error) {
        post([this, number, work = read(reply, error)] {
            m_calls.erase(number);
            work();
        });
    };
    constexpr auto unlimited = std::numeric_limits<std::uint64_t>::max();
    const auto timeout = call.timeout ? static_cast<std::uint64_t>(call.timeout->count()) : unlimited;
    try {
        auto& proxy = m_calls[number] =
            sdbus::createProxy(m_bus.connection(), ServiceName(call.service), ObjectPath(call.path));
        auto message = proxy->createMethodCall(InterfaceName(call.interface), MethodName(call.method));
        write(message);
        const auto callback = [deliver](auto&& reply, const auto& error) {
            if (error)
                deliver(nullptr, busError(*error));
            else
                deliver(&reply, std::nullopt);
        };
        callAsync(*proxy, message, callback, timeout);
    } catch (const sdbus::Error& error) { // The connection is lost, or an argument is not valid UTF-8.
        deliver(nullptr, busError(error));
    }
}

void BusClient::addMatch(const std::string& rule, ReadSignal read)
{
    try {
        m_matches.push_back(
            matchSlot(m_bus.connection(), rule,
                      [this, read = std::move(read)](auto&& message) { post(read(message)); }));
    } catch (const sdbus::Error& error) {
        throw std::runtime_error(error.getMessage());
    }
}

void BusClient::post(Work work)
{
    if (work)
        m_queue.async([life = std::weak_ptr(m_life), work = std::move(work)] {
            if (!life.expired())
                work();
        });
}

} // namespace Platform::Linux::Bus
