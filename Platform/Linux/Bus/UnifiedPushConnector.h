#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace Platform::Linux::Bus {

class BusClient;

/// A call of a push distributor, in either version of the interface.
struct UnifiedPushCall {
    enum class Method { message, newEndpoint, unregistered };

    enum class Answer {
        /// An empty reply, with the identifier of a message: the distributor can forget it.
        done,
        /// An empty reply.
        ignored,
        /// An error: the distributor should keep the message. The callers of the first version ignore it.
        failed,
    };

    /// `reason` is the text of a failure.
    using Responder = std::function<void(Answer answer, const std::string& reason)>;

    static constexpr std::size_t maximumEndpointSize = 1000;
    static constexpr std::size_t maximumMessageSize = 4096;

    Method method;
    /// The unique name of the connection that it came from.
    std::string sender;
    std::string token;
    /// The message or the endpoint, within its limits.
    std::string content;
    /// To be called once, from any thread; a second answer is dropped.
    Responder answer;
};

/// Exports the object through which push distributors call back, in either version of the interface. Each
/// well-formed call is delivered to `handler` on the queue of `client`; malformed ones are answered on the
/// thread of the bus and go no further.
///
/// Errors: throws `std::runtime_error` when the bus has gone. Source: UnifiedPush over D-Bus, 0.3.
void exportUnifiedPushConnector(BusClient& client,
                                const std::function<void(const UnifiedPushCall&)>& handler);

} // namespace Platform::Linux::Bus
