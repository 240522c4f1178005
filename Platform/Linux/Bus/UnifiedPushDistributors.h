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

/// Finds push distributors on the session bus and registers with them.
///
/// Threads: those of the client; its queue delivers each completion exactly once. Ownership: holds a
/// reference to the client. Errors: those of `PushRegistrationErrorCode`. Source: UnifiedPush over D-Bus,
/// 0.3.
class UnifiedPushDistributors {
public:
    /// Ends with the dot; each distributor chooses the rest of its name.
    static constexpr std::string_view namePrefix = "org.unifiedpush.Distributor.";

    template <typename Value>
    using Completion = std::function<void(std::variant<Value, Error>)>;

    /// The interfaces a distributor may offer; version 2 is preferred.
    enum class Protocol { version1, version2 };

    struct Identity {
        /// The unique name of the distributor's connection.
        std::string owner;
        Protocol protocol;
    };

    struct Registration {
        /// The bus name that the distributor calls.
        std::string serviceName;
        std::string token;
        /// Shown in the distributor's list of applications.
        std::string description;
    };

    struct Registered {};

    /// A call fails if the distributor does not reply within `answerTime`.
    UnifiedPushDistributors(BusClient& client, std::chrono::milliseconds answerTime)
        : m_client(client), m_answerTime(answerTime)
    {}

    /// Delivers the names of distributors that run or that the bus can start, sorted and without duplicates.
    void find(const Completion<std::vector<std::string>>& completion);
    /// Delivers the distributor's owner and protocol. Starts the distributor if it does not run.
    void identify(const std::string& name, Completion<Identity> completion);
    /// Registers this application. The distributor sends the endpoint in a separate call, which may arrive
    /// before or after the reply.
    void registerAt(const std::string& name, Protocol protocol, const Registration& registration,
                    Completion<Registered> completion);

private:
    BusClient& m_client;
    const std::chrono::milliseconds m_answerTime;
};

} // namespace Platform::Linux::Bus
