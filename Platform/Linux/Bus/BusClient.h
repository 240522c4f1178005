#pragma once

#include "Platform/DispatchQueue.h"

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace Platform::Linux::Bus {

class SessionBus;

/// The bus itself, as a service and as its interface.
inline constexpr const char* busName = "org.freedesktop.DBus";
inline constexpr const char* busPath = "/org/freedesktop/DBus";

/// A value of any type.
using BusValue = sdbus::Variant;
using BusDictionary = std::map<std::string, BusValue>;

/// A method of a service.
struct BusCall {
    std::string service;
    std::string path;
    std::string interface;
    std::string method;
    /// The start of the service included. Absent: no limit.
    std::optional<std::chrono::microseconds> timeout;
};

struct BusError {
    std::string name;
    /// May repeat what was in the call.
    std::string message;
};

template <typename Reply>
struct BusAnswer {
    /// Absent for an error, and for a reply of another type.
    std::optional<Reply> value;
    /// The unique name of the connection that sent the reply.
    std::string sender;
    /// Absent for a reply, of whichever type.
    std::optional<BusError> error;
};

/// A signal of a service.
struct BusSignal {
    std::string service;
    std::string path;
    std::string interface;
    std::string member;
};

/// Reads the arguments of a message. Absent when they are of other types.
template <typename Value>
std::optional<Value> readBusMessage(sdbus::Message& message)
{
    try {
        Value value{};
        message >> value;
        if (message)
            return std::optional<Value>(std::move(value));
    } catch (const sdbus::Error&) {
        // Of another type.
    }
    return std::nullopt;
}

/// A call from another connection. Copies stand for the same call.
///
/// Threads: `read` inside the handler of the method only; the others from any. An answer is dropped when it
/// is not the first one, and after the end of the client.
class BusRequest {
public:
    /// The unique name of the connection that it came from.
    [[nodiscard]] const std::string& sender() const { return m_state->sender; }
    /// Reads the arguments, once. Absent when they are of other types.
    template <typename Value>
    [[nodiscard]] std::optional<Value> read() const
    {
        return readBusMessage<Value>(*m_state->call);
    }
    template <typename... Values>
    void reply(const Values&... values) const
    {
        answer([&](const sdbus::MethodCall& call) {
            sdbus::MethodReply reply = call.createReply();
            static_cast<void>((reply << ... << values));
            return reply;
        });
    }
    void fail(const std::string& reason) const;

private:
    friend class BusClient;
    struct State {
        explicit State(const sdbus::MethodCall& theCall) : sender(theCall.getSender()), call(theCall) {}

        const std::string sender;
        std::mutex mutex;
        /// Absent after the answer, and after the end of the client: it must not outlive the connection.
        std::optional<sdbus::MethodCall> call;
    };

    explicit BusRequest(std::shared_ptr<State> state) : m_state(std::move(state)) {}
    void answer(const std::function<sdbus::MethodReply(const sdbus::MethodCall&)>& makeReply) const;

    std::shared_ptr<State> m_state;
};

/// A method that other connections may call.
struct BusMethod {
    std::string interface;
    std::string name;
    std::string inputSignature;
    std::string outputSignature;
    /// Whether the caller is told to expect a reply.
    bool hasReply = true;
    /// Called on the thread of the bus. Returns work for the queue of the client, or nothing.
    std::function<DispatchQueue::Work(const BusRequest&)> handler;
};

/// One adapter's share of the session bus: its calls, its subscriptions and the methods that it exports.
///
/// Whatever comes from the bus is delivered on one queue, in the order of its arrival, and never inside the
/// call that requested it. Nothing is delivered after the end of this object.
///
/// Threads: that of the queue, the destructor included. Ownership: refers to the bus and the queue.
/// Errors: `call` delivers them; the others throw `std::runtime_error` when the bus has gone.
class BusClient {
public:
    BusClient(SessionBus& bus, DispatchQueue& queue) : m_bus(bus), m_queue(queue) {}
    ~BusClient();
    BusClient(const BusClient&) = delete;
    BusClient& operator=(const BusClient&) = delete;

    /// `completion` takes a `const BusAnswer<Reply>&`. `Reply` is a tuple for a reply that is not of one
    /// value.
    template <typename Reply, typename Completion, typename... Arguments>
    void call(const BusCall& call, Completion completion, const Arguments&... arguments)
    {
        const auto write = [&](sdbus::Message& message) { static_cast<void>((message << ... << arguments)); };
        send(call, write, [completion](sdbus::Message* reply, const std::optional<BusError>& error) {
            BusAnswer<Reply> answer{.value = std::nullopt, .sender = {}, .error = error};
            if (reply != nullptr) {
                answer.sender = reply->getSender();
                answer.value = readBusMessage<Reply>(*reply);
            }
            return [completion, answer = std::move(answer)] { completion(answer); };
        });
    }

    /// `handler` takes the unique name of the sender, and what the signal carries as `Values`. A signal that
    /// carries something else is ignored. A peer may send its signals straight to this connection, past the
    /// rule that names the service: compare the sender with the owner of that name.
    template <typename... Values, typename Handler>
    void subscribe(const BusSignal& signal, Handler handler)
    {
        addMatch(rule(signal), [handler](sdbus::Message& message) -> Work {
            auto values = readBusMessage<std::tuple<Values...>>(message);
            if (!values)
                return {};
            return [handler, sender = std::string(message.getSender()), values = std::move(*values)] {
                std::apply(handler, std::tuple_cat(std::tie(sender), values));
            };
        });
    }

    /// `handler` is called when a name gets or loses its owner. `match` selects the names: "arg0='a.b'" or
    /// "arg0namespace='a.b'". The owner is the unique name of the connection, empty for none.
    void watchNames(std::string_view match,
                    const std::function<void(const std::string& name, const std::string& owner)>& handler);

    /// Makes this connection the owner of a well-known name. Returns false when another program owns it. A
    /// repeated call does nothing once the name is ours. A bus that has gone is no error here: the next call
    /// reports it.
    bool claimName(const std::string& name);

    void exportMethod(const std::string& path, const BusMethod& method);

private:
    using Work = DispatchQueue::Work;
    using Write = std::function<void(sdbus::Message&)>;
    /// These run on the thread of the bus and return work for the queue, or nothing.
    using ReadReply = std::function<Work(sdbus::Message* reply, const std::optional<BusError>& error)>;
    using ReadSignal = std::function<Work(sdbus::Message&)>;

    static std::string rule(const BusSignal& signal);
    void send(const BusCall& call, const Write& write, const ReadReply& read);
    BusRequest request(const sdbus::MethodCall& call);
    void addMatch(const std::string& rule, ReadSignal read);
    void post(Work work);

    SessionBus& m_bus;
    DispatchQueue& m_queue;
    /// Those that are ours.
    std::set<std::string> m_names;
    std::uint64_t m_lastCall = 0;
    /// Referred to weakly by work that waits on the queue.
    const std::shared_ptr<bool> m_life = std::make_shared<bool>();
    /// Used by callbacks of `m_objects`.
    std::vector<std::weak_ptr<BusRequest::State>> m_requests;
    // Their destructors wait for a callback that runs.
    std::map<std::uint64_t, std::unique_ptr<sdbus::IProxy>> m_calls;
    std::vector<sdbus::Slot> m_matches;
    std::vector<std::unique_ptr<sdbus::IObject>> m_objects;
};

} // namespace Platform::Linux::Bus
