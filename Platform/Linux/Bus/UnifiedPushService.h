#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Linux/Bus/UnifiedPushConnector.h"
#include "Platform/Linux/Bus/UnifiedPushDistributors.h"
#include "Platform/Push/UnifiedPushRegistration.h"
#include "Platform/Push/YieldingQueue.h"
#include "Platform/PushService.h"
#include "Platform/Timer.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Platform {
class UserDefaults;
} // namespace Platform

namespace Platform::Linux::Bus {

class BusClient;
class SessionBus;

/// Pushes by way of a UnifiedPush distributor on the session bus: a program of the user's choice that holds
/// the connection to a push server for all applications. The device token is the UTF-8 text of a Web Push
/// subscription; messages are encrypted for its keys, and one that does not decrypt is never delivered.
///
/// The distributor is the chosen one and no other. Without a choice it is the one of last time if that is
/// there, else the first in the alphabet; a change is logged, because the backend gets another endpoint by
/// it. The distributor is asked at every start, always with the same registration token, and again whenever
/// one comes that may serve better than what there is; never by a timer. One that goes is not replaced before
/// another one comes or the application asks, since it mostly goes to be restarted.
///
/// A distributor has its answer to a message when the listener has completed it: the identifier of the
/// message when it was accepted or never can be, an error when the distributor should keep it. Messages take
/// turns with everything else on the main thread, so that in a burst no answer waits for more than one of
/// them.
///
/// Threads: main, the destructor included. Ownership: refers to its ports. Work that waits on the main queue
/// at the end of this object is dropped. Errors: those of `PushRegistrationErrorCode` to the listener when
/// the application waits for an answer, else one line to the log, as for each message that is refused, and
/// for a distributor that registers this device but gives no endpoint within `Settings::endpointTime`. An
/// error does not end the wish: what was asked for comes once a distributor makes it possible.
class UnifiedPushService final : public PushService {
public:
    struct Ports {
        SessionBus& bus;
        /// Keeps what makes this the same receiver after a restart, the private key included.
        UserDefaults& store;
        DispatchQueue& mainQueue;
        TimerScheduler& timers;
        const AdapterLog& log;
    };

    struct Settings {
        /// Requested on the bus; distributors call it.
        std::string serviceName;
        /// What a distributor shows for this application; at most 100 bytes.
        std::string description;
        /// What follows `UnifiedPushDistributors::namePrefix`, from UNIFIEDPUSH_DISTRIBUTOR; empty: no
        /// choice.
        std::string chosenDistributor = {};
        /// How long a distributor may take for one answer, its own start included.
        std::chrono::milliseconds answerTime = std::chrono::seconds(30);
        /// How long it may take from a registration to the endpoint.
        std::chrono::seconds endpointTime{60};
    };

    static constexpr std::size_t maximumDescriptionSize = 100;

    UnifiedPushService(const Ports& ports, Settings settings);
    ~UnifiedPushService() override;
    UnifiedPushService(const UnifiedPushService&) = delete;
    UnifiedPushService& operator=(const UnifiedPushService&) = delete;

    void start(PushServiceListener& listener) override;
    void registerDevice() override;

private:
    using Call = UnifiedPushCall;
    using Answer = UnifiedPushCall::Answer;
    using Identity = UnifiedPushDistributors::Identity;
    using Registered = UnifiedPushDistributors::Registered;
    using Names = std::vector<std::string>;

    /// How far the asking of a distributor has come.
    enum class Step { idle, choosing, identifying, registering };

    /// What the listener has yet to get.
    enum class Pending { nothing, token, tokenOrError };

    void listenOnBus();

    // Asking a distributor, step by step. Each `begin` makes what is under way void.
    void begin();
    template <typename Value>
    UnifiedPushDistributors::Completion<Value> next(void (UnifiedPushService::*step)(const Value&));
    void choose(const Names& names);
    void query(const std::string& distributor);
    void identified(const Identity& identity);
    void registered(const Registered&);
    void fail(const Error& error);

    // What comes over the bus.
    void ownerChanged(const std::string& name, const std::string& owner);
    void receive(const Call& call);
    void receiveEndpoint(const Call& call);
    void setEndpoint(const Call& call, const std::string& distributor, const std::string& endpoint);
    void receiveEnd(const Call& call);
    void receiveMessage(const Call& call);
    void concludeMessage(const Call::Responder& answer, const std::optional<PushRefusal>& refusal);

    void waitForEndpoint();
    void announceToken();
    [[nodiscard]] std::variant<PropertyList::Dictionary, std::string>
    readMessage(const std::string& message) const;
    /// The bus name; empty: no choice.
    [[nodiscard]] std::string chosenName() const;

    const Ports m_ports;
    const Settings m_settings;
    /// For completions, which may be called after this service has gone.
    const std::shared_ptr<const bool> m_life = std::make_shared<const bool>(true);
    /// Takes what arrives on the bus to the main thread, in its order.
    Push::YieldingQueue m_inbox{m_ports.mainQueue};
    PushServiceListener* m_listener = nullptr;
    /// Absent until the application asks for the first time on this device.
    std::optional<Push::UnifiedPushRegistration> m_registration;
    Pending m_pending = Pending::nothing;
    /// What the application's token was made of; empty: it has none.
    std::string m_knownEndpoint;

    const std::unique_ptr<BusClient> m_client;
    UnifiedPushDistributors m_distributors;
    Step m_step = Step::idle;
    std::uint64_t m_run = 0;
    /// The one that is, or was last, asked; empty: none.
    std::string m_distributor;
    /// The unique name of its connection; empty while that is not known.
    std::string m_owner;
    /// One that ends the registration, or goes while it is asked, is made up for once, but not for ever.
    bool m_mayRegisterAgain = true;
    ErrorLine m_failureLine;
    /// Runs while a distributor that has registered us owes the endpoint.
    std::unique_ptr<Timer> m_endpointTimer;
};

} // namespace Platform::Linux::Bus
