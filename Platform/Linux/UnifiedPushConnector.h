#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace sdbus {
class IObject;
} // namespace sdbus

namespace Platform::Linux {

class SessionBus;

/// The object on the session bus through which push distributors call back, by either version of the
/// interface. Calls with malformed fields are answered here and go no further.
///
/// Threads: `answer` from any; the handler runs on the thread of the bus. Ownership: refers to the bus, which
/// must be stopped before this goes. Source: UnifiedPush over D-Bus, 0.3.
class UnifiedPushConnector {
public:
    enum class Method { message, newEndpoint, unregistered };

    struct Call {
        Method method;
        /// To answer it by.
        std::uint64_t number;
        /// The unique name of the connection that it came from.
        std::string sender;
        std::string token;
        /// The message or the endpoint, within its limits.
        std::string content;
    };

    enum class Answer {
        /// An empty reply, with the identifier of a message: the distributor can forget it.
        done,
        /// An empty reply.
        ignored,
        /// An error: the distributor should keep the message. The first version of the interface has no
        /// replies
        /// that it could look at.
        failed,
    };

    static constexpr std::size_t maximumEndpointSize = 1000;
    static constexpr std::size_t maximumMessageSize = 4096;

    /// Throws `sdbus::Error` when the bus has gone.
    UnifiedPushConnector(SessionBus& bus, std::function<void(Call)> handler);
    ~UnifiedPushConnector();
    UnifiedPushConnector(const UnifiedPushConnector&) = delete;
    UnifiedPushConnector& operator=(const UnifiedPushConnector&) = delete;

    /// To be called for each call. A second answer to the same one is dropped. `reason` is the text of a
    /// failure.
    void answer(std::uint64_t number, Answer answer, const std::string& reason = {});

private:
    struct Unanswered;

    void receive(Method method, Unanswered unanswered);

    std::function<void(Call)> m_handler;
    std::mutex m_mutex;
    std::uint64_t m_lastNumber = 0;
    std::map<std::uint64_t, std::unique_ptr<Unanswered>> m_unanswered;
    std::unique_ptr<sdbus::IObject> m_object;
};

} // namespace Platform::Linux
