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
        fatalError("the description for push distributors is longer than they take");
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
                "The keys of the push registration cannot be stored. Fix what the log says about the store, "
                "then start this application again."));
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
        m_ports.log.error(std::string("Push distributors cannot reach this application: ") + error.what());
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
            fmt::format("Another program has the name {} on the session bus, so that no push can reach this "
                        "one. End it and start this application again.",
                        m_settings.serviceName)));
    });
}

/// Continues with `step`, unless another run has begun by then or the outcome is an error.
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
    const auto isThere = [&](const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    const std::string chosen = chosenName();
    const std::string& previous = m_registration->distributor();
    if (!chosen.empty() && !isThere(chosen)) {
        fail(Push::pushRegistrationError(
            Push::PushRegistrationErrorCode::noDistributor,
            fmt::format("The push distributor {}, which UNIFIEDPUSH_DISTRIBUTOR names, neither runs nor is "
                        "installed. Start or install it, or name another one.",
                        chosen)));
    } else if (names.empty()) {
        fail(Push::pushRegistrationError(
            Push::PushRegistrationErrorCode::noDistributor,
            "No push distributor runs or is installed. Install one for UnifiedPush, or "
            "start it."));
    } else if (!chosen.empty()) {
        query(chosen);
    } else if (previous.empty() || isThere(previous)) {
        query(previous.empty() ? names.front() : previous);
    } else {
        m_ports.log.warning(fmt::format("The push distributor {} has gone. {} takes its place, and the "
                                        "backend will get another endpoint. To prevent such a change, name "
                                        "a distributor in UNIFIEDPUSH_DISTRIBUTOR.",
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
        announceToken(); // Not every distributor sends an endpoint again that has not changed.
}

void UnifiedPushService::waitForEndpoint()
{
    m_endpointTimer = m_ports.timers.scheduledTimer(m_settings.endpointTime, [this] {
        m_ports.log.error(fmt::format("The push distributor {} has registered this device, but given it no "
                                      "endpoint within {} s, so no push can arrive. Check the settings and "
                                      "the log of the distributor, then restart it.",
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
        // It will not answer any more; perhaps another one does.
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
    // The token is the proof; who else may know it is not whom we asked.
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
    m_endpointTimer.reset();
    if (!Push::isUsablePushEndpoint(call.content)) {
        m_ports.log.error(
            fmt::format("The push distributor {} gave an endpoint that is no https address.", m_distributor));
        call.answer(Answer::ignored, {});
        return;
    }
    setEndpoint(call, m_distributor, call.content);
    if (m_pending != Pending::nothing || call.content != m_knownEndpoint)
        announceToken();
}

/// Stores what a call has changed, and answers the call.
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
            fmt::format("The push distributor {} has ended the registration each time it was renewed. Look "
                        "into its settings, then restart it.",
                        m_distributor)));
}

void UnifiedPushService::receiveMessage(const Call& call)
{
    const auto payload = readMessage(call.content);
    if (const auto* reason = std::get_if<std::string>(&payload)) {
        concludeMessage(call.answer, PushRefusal{*reason});
        return;
    }
    // The completion may come on any thread, and after this service has gone.
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
    // What can never be accepted is acknowledged too; otherwise the distributor redelivers it for ever.
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

/// The payload, or the refusal: a text that tells nothing of the content, since it goes to the log.
std::variant<PropertyList::Dictionary, std::string>
UnifiedPushService::readMessage(const std::string& message) const
{
    try {
        auto payload = Push::readPushPayload(m_registration->keys().decrypt(message));
        if (std::holds_alternative<std::string>(payload))
            return "what it says is not the JSON object that a payload is";
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
