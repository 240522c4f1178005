#pragma once

#include "Platform/Error.h"

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Platform::Linux::Bus {

class BusClient;

/// The push distributors on the session bus, as clients that want to be registered see them.
///
/// Threads: those of the client; its queue delivers each completion exactly once. Ownership: refers to the
/// client. Errors: those of `PushRegistrationErrorCode`. Source: UnifiedPush over D-Bus, 0.3.
class UnifiedPushDistributors {
public:
    /// With the dot: what follows it is up to each distributor.
    static constexpr std::string_view namePrefix = "org.unifiedpush.Distributor.";

    template <typename Value>
    using Completion = std::function<void(std::variant<Value, Error>)>;

    /// The interfaces that a distributor may offer; the later one is the better one.
    enum class Protocol { version1, version2 };

    struct Identity {
        /// The unique name of its connection.
        std::string owner;
        Protocol protocol;
    };

    struct Registration {
        /// The name under which the distributor calls back.
        std::string serviceName;
        std::string token;
        /// For the distributor's own list of applications.
        std::string description;
    };

    struct Registered {};

    /// A distributor that stays silent for `answerTime` has failed.
    UnifiedPushDistributors(BusClient& client, std::chrono::milliseconds answerTime)
        : m_client(client), m_answerTime(answerTime)
    {}

    /// The names of those that run and those that the bus can start, each once, in alphabetical order.
    void find(const Completion<std::vector<std::string>>& completion);
    /// Starts the distributor of that name if it does not run.
    void identify(const std::string& name, Completion<Identity> completion);
    /// The endpoint does not come with the answer but as a call, before or after it.
    void registerAt(const std::string& name, Protocol protocol, const Registration& registration,
                    Completion<Registered> completion);

private:
    BusClient& m_client;
    const std::chrono::milliseconds m_answerTime;
};

} // namespace Platform::Linux::Bus
