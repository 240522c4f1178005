#include "Platform/Linux/Bus/UnifiedPushService.h"

#include "Platform/FatalError.h"
#include "Platform/Linux/Bus/BusClient.h"
#include "Platform/Push/PushPayload.h"
#include "Platform/Push/PushRegistrationError.h"
#include "Platform/Push/WebPush.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <stdexcept>
#include <utility>

namespace Platform::Linux::Bus {

UnifiedPushService::UnifiedPushService(const Ports& ports, Settings settings)
    : m_ports(ports),
      m_settings(std::move(settings)),
      m_client(std::make_unique<BusClient>(ports.bus, m_inbox)),
      m_distributors(*m_client, m_settings.answerTime),
      m_failureLine(ports.log)
{
    if (m_settings.description.size() > maximumDescriptionSize)
        fatalError("the description for push distributors is longer than 100 bytes");
}

UnifiedPushService::~UnifiedPushService() = default;

void UnifiedPushService::start(PushServiceListener& listener)
{
    m_listener = &listener;
    m_registration = Push::UnifiedPushRegistration::stored(m_ports.store);
    if (m_registration) {
        m_knownEndpoint = m_registration->endpoint();
        m_distributor = m_registration->distributor();
    }
    listenOnBus();
    m_client->claimName(m_settings.serviceName);
    if (m_registration)
        begin();
}

void UnifiedPushService::registerDevice()
{
    m_pending = Pending::tokenOrError;
    m_mayRegisterAgain = true;
    if (!m_registration)
        m_registration = Push::UnifiedPushRegistration::make(m_ports.store);
    if (!m_registration)
        m_inbox.async([this] {
            fail(Push::pushRegistrationError(
                Push::PushRegistrationErrorCode::notStored,
                "The keys of the push registration cannot be stored. Fix the storage error in the log, then "
                "restart this application."));
        });
    else if (m_step == Step::idle)
        begin();
}

void UnifiedPushService::listenOnBus()
{
    try {
        exportUnifiedPushConnector(*m_client, [this](const Call& call) { receive(call); });
        m_client->watchNames(
            "arg0namespace='org.unifiedpush.Distributor'",
            [this](const std::string& name, const std::string& owner) { ownerChanged(name, owner); });
    } catch (const std::runtime_error& error) {
        m_ports.log.error(std::string("Push distributors cannot call this application: ") + error.what());
    }
}

void UnifiedPushService::begin()
{
    ++m_run;
    m_endpointTimer.reset();
    m_step = Step::choosing;
    if (m_client->claimName(m_settings.serviceName)) {
        m_distributors.find(next(&UnifiedPushService::choose));
        return;
    }
    m_inbox.async([this, completion = next(&UnifiedPushService::choose)] {
        completion(Push::pushRegistrationError(
            Push::PushRegistrationErrorCode::nameTaken,
            fmt::format("Another program owns the name {} on the session bus, so no push can reach this "
                        "application. Quit that program, then restart this application.",
                        m_settings.serviceName)));
    });
}

/// Returns a completion that calls `step`, or `fail` for an error. It does nothing once another run has
/// begun.
template <typename Value>
UnifiedPushDistributors::Completion<Value>
UnifiedPushService::next(void (UnifiedPushService::*step)(const Value&))
{
    return [this, step, run = m_run](const std::variant<Value, Error>& outcome) {
        if (run != m_run)
            return;
        if (const auto* error = std::get_if<Error>(&outcome))
            fail(*error);
        else
            (this->*step)(std::get<Value>(outcome));
    };
}

void UnifiedPushService::choose(const Names& names)
{
    const auto isAvailable = [&](const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    const std::string chosen = chosenName();
    const std::string& previous = m_registration->distributor();
    if (!chosen.empty() && !isAvailable(chosen)) {
        fail(Push::pushRegistrationError(
            Push::PushRegistrationErrorCode::noDistributor,
            fmt::format("The push distributor {}, set in UNIFIEDPUSH_DISTRIBUTOR, is neither running nor "
                        "installed. Start or install it, or set another one.",
                        chosen)));
    } else if (names.empty()) {
        fail(Push::pushRegistrationError(
            Push::PushRegistrationErrorCode::noDistributor,
            "No push distributor is running or installed. Start or install one for UnifiedPush."));
    } else if (!chosen.empty()) {
        query(chosen);
    } else if (previous.empty() || isAvailable(previous)) {
        query(previous.empty() ? names.front() : previous);
    } else {
        m_ports.log.warning(fmt::format("The push distributor {} is no longer available. {} replaces it, and "
                                        "the backend will get a new endpoint. To prevent such a change, set "
                                        "UNIFIEDPUSH_DISTRIBUTOR.",
                                        previous, names.front()));
        query(names.front());
    }
}

void UnifiedPushService::query(const std::string& distributor)
{
    if (distributor != m_distributor) {
        m_distributor = distributor;
        m_owner.clear();
    }
    m_step = Step::identifying;
    m_distributors.identify(m_distributor, next(&UnifiedPushService::identified));
}

void UnifiedPushService::identified(const Identity& identity)
{
    m_owner = identity.owner;
    m_step = Step::registering;
    m_distributors.registerAt(m_distributor, identity.protocol,
                              {m_settings.serviceName, m_registration->token(), m_settings.description},
                              next(&UnifiedPushService::registered));
}

void UnifiedPushService::registered(const Registered&)
{
    m_step = Step::idle;
    m_failureLine.reset();
    if (m_registration->distributor() != m_distributor)
        m_registration->setEndpoint(m_ports.store, m_distributor, "");
    if (m_registration->endpoint().empty())
        waitForEndpoint();
    else if (m_pending != Pending::nothing)
        announceToken(); // Some distributors do not resend an unchanged endpoint.
}

void UnifiedPushService::waitForEndpoint()
{
    m_endpointTimer = m_ports.timers.scheduledTimer(m_settings.endpointTime, [this] {
        m_ports.log.error(fmt::format("The push distributor {} registered this device but sent no endpoint "
                                      "within {} s, so no push can arrive. Check the distributor's settings "
                                      "and log, then restart it.",
                                      m_distributor, m_settings.endpointTime.count()));
    });
}

void UnifiedPushService::fail(const Error& error)
{
    m_step = Step::idle;
    if (m_pending == Pending::tokenOrError) {
        m_pending = Pending::token;
        m_listener->didFailToRegister(error);
    } else {
        m_failureLine.report(error.localizedDescription);
    }
}

void UnifiedPushService::ownerChanged(const std::string& name, const std::string& owner)
{
    const bool isOurs = name == m_distributor;
    const std::string previousOwner = isOurs ? std::exchange(m_owner, owner) : "";
    if (!m_registration)
        return;
    if (owner.empty()) {
        // It exited before replying; try again, perhaps with another distributor.
        if (isOurs && m_step != Step::idle && std::exchange(m_mayRegisterAgain, false))
            begin();
        return;
    }
    const bool isStartedByUs = isOurs && m_step == Step::identifying && previousOwner.empty();
    if (isStartedByUs || owner == previousOwner)
        return;
    const std::string chosen = chosenName();
    if (chosen.empty() ? isOurs || m_owner.empty() : name == chosen) {
        m_mayRegisterAgain = true;
        begin();
    }
}

void UnifiedPushService::receive(const Call& call)
{
    // The token authenticates the call. If the distributor's connection is known, only its calls are
    // accepted.
    if (!m_registration || call.token != m_registration->token() ||
        (!m_owner.empty() && call.sender != m_owner)) {
        call.answer(Answer::ignored, {});
        return;
    }
    switch (call.method) {
    case Call::Method::newEndpoint:
        receiveEndpoint(call);
        break;
    case Call::Method::unregistered:
        receiveEnd(call);
        break;
    case Call::Method::message:
        receiveMessage(call);
        break;
    }
}

void UnifiedPushService::receiveEndpoint(const Call& call)
{
    // Until the new distributor's connection is known, an endpoint is a late one of the former distributor.
    if (m_owner.empty() && m_registration->distributor() != m_distributor) {
        call.answer(Answer::ignored, {});
        return;
    }
    m_endpointTimer.reset();
    if (!Push::isUsablePushEndpoint(call.content)) {
        m_ports.log.error(
            fmt::format("The push distributor {} sent an endpoint that is not an https URL.", m_distributor));
        call.answer(Answer::ignored, {});
        return;
    }
    setEndpoint(call, m_distributor, call.content);
    if (m_pending != Pending::nothing || call.content != m_knownEndpoint)
        announceToken();
}

/// Stores the new state and replies to the call.
void UnifiedPushService::setEndpoint(const Call& call, const std::string& distributor,
                                     const std::string& endpoint)
{
    const bool isStored = m_registration->setEndpoint(m_ports.store, distributor, endpoint);
    call.answer(isStored ? Answer::done : Answer::failed, PushRefusal::notStored().reason);
}

void UnifiedPushService::receiveEnd(const Call& call)
{
    m_endpointTimer.reset();
    setEndpoint(call, m_registration->distributor(), "");
    if (m_step != Step::idle)
        return;
    if (std::exchange(m_mayRegisterAgain, false))
        begin();
    else
        fail(Push::pushRegistrationError(
            Push::PushRegistrationErrorCode::refused,
            fmt::format("The push distributor {} ended the registration twice. Check its settings, then "
                        "restart it.",
                        m_distributor)));
}

void UnifiedPushService::receiveMessage(const Call& call)
{
    const auto payload = readMessage(call.content);
    if (const auto* reason = std::get_if<std::string>(&payload)) {
        m_listener->didReceiveUnreadablePush();
        concludeMessage(call.answer, PushRefusal{*reason});
        return;
    }
    // The completion may run on any thread, even after this service is destroyed.
    const auto completion = [this, &queue = m_ports.mainQueue, life = std::weak_ptr(m_life),
                             answer = call.answer](std::optional<PushRefusal> refusal) {
        if (life.expired())
            return;
        queue.async([this, life, answer, refusal = std::move(refusal)] {
            if (!life.expired())
                concludeMessage(answer, refusal);
        });
    };
    m_listener->didReceive(std::get<PropertyList::Dictionary>(payload), completion);
}

void UnifiedPushService::concludeMessage(const Call::Responder& answer,
                                         const std::optional<PushRefusal>& refusal)
{
    if (refusal)
        m_ports.log.error("A push message was refused: " + refusal->reason);
    // Acknowledge messages that can never be accepted too; otherwise the distributor redelivers them forever.
    if (refusal && refusal->isTemporary)
        answer(Answer::failed, refusal->reason);
    else
        answer(Answer::done, {});
}

void UnifiedPushService::announceToken()
{
    m_pending = Pending::nothing;
    m_knownEndpoint = m_registration->endpoint();
    const std::string subscription =
        Push::webPushSubscription(m_registration->endpoint(), m_registration->keys());
    const auto bytes = std::as_bytes(std::span(subscription));
    m_listener->didRegister(Data(bytes.begin(), bytes.end()));
}

/// Returns the payload or the reason for refusing it. The reason is logged, so it reveals none of the
/// content.
std::variant<PropertyList::Dictionary, std::string>
UnifiedPushService::readMessage(const std::string& message) const
{
    try {
        auto payload = Push::readPushPayload(m_registration->keys().decrypt(message));
        if (std::holds_alternative<std::string>(payload))
            return "its content is not a JSON object";
        return payload;
    } catch (const Push::WebPushError& error) {
        return error.what();
    }
}

std::string UnifiedPushService::chosenName() const
{
    const std::string& suffix = m_settings.chosenDistributor;
    return suffix.empty() ? std::string() : std::string(UnifiedPushDistributors::namePrefix) + suffix;
}

} // namespace Platform::Linux::Bus
