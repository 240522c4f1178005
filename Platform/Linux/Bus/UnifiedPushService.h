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

/// Receives pushes through a UnifiedPush distributor on the session bus: a program chosen by the user that
/// holds the connection to a push server for all applications. The device token is the UTF-8 text of a Web
/// Push subscription. Messages are encrypted with its keys; those that do not decrypt are never delivered.
///
/// The user can set the distributor. Otherwise, it is the previous one if available, else the first in
/// alphabetical order. A change of distributor is logged because the backend gets a new endpoint. This
/// service registers at every start, always with the same token, and again when a suitable distributor
/// appears, never by a timer. A distributor that exits is replaced only when another one appears or the
/// application registers again, since it is usually just being restarted.
///
/// A distributor gets the reply to a message once the listener has completed it: an acknowledgment if the
/// message was accepted or can never be, an error if the distributor should keep it. Messages are delivered
/// one at a time between other work on the main thread, so a burst delays each reply by at most one message.
///
/// Threads: main, including for the destructor. Ownership: holds references to its ports; work still on the
/// main queue at destruction is skipped. Errors: reports those of `PushRegistrationErrorCode` to the listener
/// if the application awaits a registration, and otherwise logs one line. Each refused message, and a
/// distributor that sends no endpoint within `Settings::endpointTime`, is logged too. After an error, the
/// registration is still delivered as soon as a distributor accepts it.
class UnifiedPushService final : public PushService {
public:
    struct Ports {
        SessionBus& bus;
        /// Stores the registration across restarts, including the private key.
        UserDefaults& store;
        DispatchQueue& mainQueue;
        TimerScheduler& timers;
        const AdapterLog& log;
    };

    struct Settings {
        /// The bus name this service claims and distributors call.
        std::string serviceName;
        /// What a distributor shows for this application; at most 100 bytes.
        std::string description;
        /// The distributor set in UNIFIEDPUSH_DISTRIBUTOR, without `UnifiedPushDistributors::namePrefix`;
        /// empty if not set.
        std::string chosenDistributor = {};
        /// Timeout for one reply from a distributor, including the time it takes to start.
        std::chrono::milliseconds answerTime = std::chrono::seconds(30);
        /// Timeout from a successful registration to the endpoint.
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

    /// The current step of the registration with a distributor.
    enum class Step { idle, choosing, identifying, registering };

    /// What the listener is still waiting for.
    enum class Pending { nothing, token, tokenOrError };

    void listenOnBus();

    // The steps of a registration. `begin` cancels the previous run.
    void begin();
    template <typename Value>
    UnifiedPushDistributors::Completion<Value> next(void (UnifiedPushService::*step)(const Value&));
    void choose(const Names& names);
    void query(const std::string& distributor);
    void identified(const Identity& identity);
    void registered(const Registered&);
    void fail(const Error& error);

    // Signals and calls from the bus.
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
    /// The bus name of the distributor set by the user; empty if not set.
    [[nodiscard]] std::string chosenName() const;

    const Ports m_ports;
    const Settings m_settings;
    /// Checked by completions, which may be called after this service is destroyed.
    const std::shared_ptr<const bool> m_life = std::make_shared<const bool>(true);
    /// Passes what arrives on the bus to the main thread, in order.
    Push::YieldingQueue m_inbox{m_ports.mainQueue};
    PushServiceListener* m_listener = nullptr;
    /// Absent until the application first registers on this device.
    std::optional<Push::UnifiedPushRegistration> m_registration;
    Pending m_pending = Pending::nothing;
    /// The endpoint in the application's current token; empty if it has no token.
    std::string m_knownEndpoint;

    const std::unique_ptr<BusClient> m_client;
    UnifiedPushDistributors m_distributors;
    Step m_step = Step::idle;
    std::uint64_t m_run = 0;
    /// The distributor last called; empty if none was.
    std::string m_distributor;
    /// The unique name of its connection; empty if unknown.
    std::string m_owner;
    /// Allows one retry when a distributor ends the registration or exits during it, to prevent a loop.
    bool m_mayRegisterAgain = true;
    ErrorLine m_failureLine;
    /// Runs from a successful registration until the endpoint arrives.
    std::unique_ptr<Timer> m_endpointTimer;
};

} // namespace Platform::Linux::Bus
