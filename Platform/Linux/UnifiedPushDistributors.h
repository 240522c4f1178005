#pragma once

#include "Platform/Error.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace sdbus {
class IProxy;
} // namespace sdbus

namespace Platform::Linux {

class SessionBus;

/// The push distributors on the session bus, as those who want to be registered see them.
///
/// Threads: main; completions run on the thread of the bus, or inside the call when nothing can be sent. Each
/// is called exactly once, unless the bus stops before. Ownership: refers to the bus, which must be stopped
/// before this goes. Errors: those of `PushRegistrationErrorCode`. Source: UnifiedPush over D-Bus, 0.3.
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
    UnifiedPushDistributors(SessionBus& bus, std::chrono::milliseconds answerTime);
    ~UnifiedPushDistributors();
    UnifiedPushDistributors(const UnifiedPushDistributors&) = delete;
    UnifiedPushDistributors& operator=(const UnifiedPushDistributors&) = delete;

    /// The names of those that run and those that the bus can start, each once, in alphabetical order.
    void find(const Completion<std::vector<std::string>>& completion);
    /// Starts the distributor of that name if it does not run.
    void identify(const std::string& name, Completion<Identity> completion);
    /// The endpoint does not come with the answer but as a call, before or after it.
    void registerAt(const std::string& name, Protocol protocol, const Registration& registration,
                    Completion<Registered> completion);

private:
    sdbus::IProxy& proxy(const std::string& name);

    SessionBus& m_bus;
    const std::chrono::milliseconds m_answerTime;
    std::unique_ptr<sdbus::IProxy> m_busProxy;
    /// By name; kept, since late answers may still be on their way to them.
    std::map<std::string, std::unique_ptr<sdbus::IProxy>> m_proxies;
};

} // namespace Platform::Linux
