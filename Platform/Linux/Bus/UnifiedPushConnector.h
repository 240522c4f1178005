#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace Platform::Linux::Bus {

class BusClient;

/// A call from a push distributor, through either version of the interface.
struct UnifiedPushCall {
    enum class Method { message, newEndpoint, unregistered };

    enum class Answer {
        /// A reply that acknowledges the message by its identifier; the distributor can delete it.
        done,
        /// An empty reply.
        ignored,
        /// An error: the distributor should keep the message. Callers of version 1 get no replies.
        failed,
    };

    /// `reason` is used for `Answer::failed` only.
    using Responder = std::function<void(Answer answer, const std::string& reason)>;

    static constexpr std::size_t maximumEndpointSize = 1000;
    static constexpr std::size_t maximumMessageSize = 4096;

    Method method;
    /// The unique name of the caller's connection.
    std::string sender;
    std::string token;
    /// The message or the endpoint, within the size limits above.
    std::string content;
    /// Call it once, from any thread; further calls are ignored.
    Responder answer;
};

/// Exports the D-Bus object that push distributors call, with both versions of the interface. Well-formed
/// calls are delivered to `handler` on the client's queue; malformed ones get an empty reply on the bus
/// thread.
///
/// Errors: throws `std::runtime_error` when the connection is lost. Source: UnifiedPush over D-Bus, 0.3.
void exportUnifiedPushConnector(BusClient& client,
                                const std::function<void(const UnifiedPushCall&)>& handler);

} // namespace Platform::Linux::Bus
