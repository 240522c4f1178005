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

/// The bus's own service name, which is also its interface name, and its object path.
inline constexpr const char* busName = "org.freedesktop.DBus";
inline constexpr const char* busPath = "/org/freedesktop/DBus";

using BusValue = sdbus::Variant;
using BusDictionary = std::map<std::string, BusValue>;

/// The target of a method call.
struct BusCall {
    std::string service;
    std::string path;
    std::string interface;
    std::string method;
    /// Includes the time the service takes to start. Absent: no limit.
    std::optional<std::chrono::microseconds> timeout;
};

struct BusError {
    std::string name;
    /// May quote the call's arguments.
    std::string message;
};

template <typename Reply>
struct BusAnswer {
    /// Absent after an error, and when the reply has an unexpected type.
    std::optional<Reply> value;
    /// The unique name of the connection that sent the reply.
    std::string sender;
    /// Absent when a reply arrived, even one of an unexpected type.
    std::optional<BusError> error;
};

/// The signal to subscribe to.
struct BusSignal {
    std::string service;
    std::string path;
    std::string interface;
    std::string member;
};

/// Returns the arguments of a message; absent if their types differ from `Value`.
template <typename Value>
std::optional<Value> readBusMessage(sdbus::Message& message)
{
    try {
        Value value{};
        message >> value;
        if (message)
            return std::optional<Value>(std::move(value));
    } catch (const sdbus::Error&) {
        // The types differ.
    }
    return std::nullopt;
}

/// A method call from another connection. Copies refer to the same call.
///
/// Threads: `read` only inside the method's handler, everything else from any thread. Only the first answer
/// is sent; answers after the client is destroyed are dropped.
class BusRequest {
public:
    /// The unique name of the caller's connection.
    [[nodiscard]] const std::string& sender() const { return m_state->sender; }
    /// Returns the arguments; absent if their types differ from `Value`. Call at most once.
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
        /// Reset after the answer and when the client is destroyed: it must not outlive the connection.
        std::optional<sdbus::MethodCall> call;
    };

    explicit BusRequest(std::shared_ptr<State> state) : m_state(std::move(state)) {}
    void answer(const std::function<sdbus::MethodReply(const sdbus::MethodCall&)>& makeReply) const;

    std::shared_ptr<State> m_state;
};

/// A method exported to other connections.
struct BusMethod {
    std::string interface;
    std::string name;
    std::string inputSignature;
    std::string outputSignature;
    /// False if the method never replies.
    bool hasReply = true;
    /// Called on the bus thread. Returns work for the client's queue, or nothing.
    std::function<DispatchQueue::Work(const BusRequest&)> handler;
};

/// One adapter's use of the session bus: its calls, subscriptions and exported methods.
///
/// Replies, signals and calls are delivered on one queue in order of arrival, never inside the call that
/// requested them and never after destruction.
///
/// Threads: the queue's, including for the destructor. Ownership: holds references to the bus and the queue.
/// Errors: `call` delivers them; other members throw `std::runtime_error` when the connection is lost.
class BusClient {
public:
    BusClient(SessionBus& bus, DispatchQueue& queue) : m_bus(bus), m_queue(queue) {}
    ~BusClient();
    BusClient(const BusClient&) = delete;
    BusClient& operator=(const BusClient&) = delete;

    /// Calls `completion` with a `const BusAnswer<Reply>&`. `Reply` is a tuple unless the reply has exactly
    /// one value.
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

    /// Calls `handler` with the sender's unique name and the signal's arguments; signals with arguments of
    /// other types are ignored. A peer can send signals directly to this connection, bypassing the match
    /// rule, so the handler must compare the sender with the owner of the service name.
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

    /// Calls `handler` when a name gains or loses its owner. `match` selects the names: "arg0='a.b'" or
    /// "arg0namespace='a.b'". `owner` is the unique name of the connection, or empty.
    void watchNames(std::string_view match,
                    const std::function<void(const std::string& name, const std::string& owner)>& handler);

    /// Makes this connection the owner of a well-known name; does nothing if it is already. Returns false if
    /// another program owns the name. Does not report a lost connection: the next call does.
    bool claimName(const std::string& name);

    void exportMethod(const std::string& path, const BusMethod& method);

private:
    using Work = DispatchQueue::Work;
    using Write = std::function<void(sdbus::Message&)>;
    /// These run on the bus thread and return work for the queue, or nothing.
    using ReadReply = std::function<Work(sdbus::Message* reply, const std::optional<BusError>& error)>;
    using ReadSignal = std::function<Work(sdbus::Message&)>;

    static std::string rule(const BusSignal& signal);
    void send(const BusCall& call, const Write& write, const ReadReply& read);
    BusRequest request(const sdbus::MethodCall& call);
    void addMatch(const std::string& rule, ReadSignal read);
    void post(Work work);

    SessionBus& m_bus;
    DispatchQueue& m_queue;
    /// The well-known names this connection owns.
    std::set<std::string> m_names;
    std::uint64_t m_lastCall = 0;
    /// Queued work holds a weak reference and is skipped once this has expired.
    const std::shared_ptr<bool> m_life = std::make_shared<bool>();
    /// Accessed by callbacks of `m_objects`.
    std::vector<std::weak_ptr<BusRequest::State>> m_requests;
    // Their destructors wait for a running callback.
    std::map<std::uint64_t, std::unique_ptr<sdbus::IProxy>> m_calls;
    std::vector<sdbus::Slot> m_matches;
    std::vector<std::unique_ptr<sdbus::IObject>> m_objects;
};

} // namespace Platform::Linux::Bus
