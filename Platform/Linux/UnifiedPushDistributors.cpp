#include "Platform/Linux/UnifiedPushDistributors.h"

#include "Platform/Encoding.h"
#include "Platform/Linux/SessionBus.h"
#include "Platform/Push/PushRegistrationError.h"

#include <fmt/format.h>
#include <pugixml.hpp>
#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <array>
#include <set>
#include <stdexcept>
#include <utility>

namespace Platform::Linux {

namespace {

using Code = Push::PushRegistrationErrorCode;
using Names = std::vector<std::string>;
using Dictionary = std::map<std::string, sdbus::Variant>;

constexpr const char* busName = "org.freedesktop.DBus";
constexpr const char* distributorInterface1 = "org.unifiedpush.Distributor1";
constexpr const char* distributorInterface2 = "org.unifiedpush.Distributor2";
/// In bytes: what an error repeats of a text that came from elsewhere.
constexpr std::size_t excerptSize = 120;

/// `text` in quotation marks on one line, cut if need be.
std::string excerpt(std::string text)
{
    if (text.size() > excerptSize) {
        std::size_t end = excerptSize;
        while (end > 0 && isContinuationByte(text[end]))
            --end;
        text.resize(end);
        text += "…";
    }
    const auto isControl = [](char character) {
        return (character >= 0 && character < ' ') || character == '\x7f';
    };
    std::replace_if(text.begin(), text.end(), isControl, ' ');
    return "\"" + text + "\"";
}

/// Somebody on the bus who is asked.
struct Peer {
    sdbus::IProxy& proxy;
    /// The beginning of a sentence.
    std::string subject;
    /// A sentence: what helps when no answer comes.
    const char* mend;
    std::chrono::milliseconds answerTime;

    /// Why a call came to nothing.
    [[nodiscard]] Error callError(const sdbus::Error& error) const
    {
        constexpr std::array silent{".NoReply", ".Timeout", ".TimedOut"};
        const std::string& kind = error.getName();
        const bool isSilent =
            std::any_of(silent.begin(), silent.end(), [&](const char* end) { return kind.ends_with(end); });
        const std::string what =
            isSilent ? "does not answer"
                     : "cannot be asked: " + excerpt(error.getMessage().empty() ? kind : error.getMessage());
        return Push::pushRegistrationError(Code::distributorFault,
                                           fmt::format("{} {}. {}", subject, what, mend));
    }

    [[nodiscard]] Error nonsense() const
    {
        return Push::pushRegistrationError(
            Code::distributorFault,
            fmt::format("{} answers with something else than what was asked for. Update it.", subject));
    }
};

Peer distributorPeer(sdbus::IProxy& proxy, const std::string& name, std::chrono::milliseconds answerTime)
{
    return {proxy, "The push distributor " + name, "Restart it, or install it anew.", answerTime};
}

/// `read` makes the outcome of the reply; it throws when the reply is none.
template <typename Value, typename Read, typename... Arguments>
void ask(const Peer& peer, const char* interface, const char* method, Read read,
         UnifiedPushDistributors::Completion<Value> completion, const Arguments&... arguments)
{
    try {
        sdbus::MethodCall call = peer.proxy.createMethodCall(interface, method);
        static_cast<void>((call << ... << arguments));
        peer.proxy.callMethod(
            call,
            [=](sdbus::MethodReply& reply, const sdbus::Error* error) {
                std::variant<Value, Error> outcome = peer.nonsense();
                try {
                    outcome = error != nullptr ? peer.callError(*error) : read(reply);
                } catch (const std::exception&) {
                    // Not of the types that were to be expected.
                }
                completion(std::move(outcome));
            },
            peer.answerTime);
    } catch (const sdbus::Error& error) {
        completion(peer.callError(error));
    }
}

void askForNames(const Peer& bus, const char* method, UnifiedPushDistributors::Completion<Names> completion)
{
    const auto read = [](sdbus::MethodReply& reply) -> std::variant<Names, Error> {
        Names names;
        reply >> names;
        std::erase_if(names, [](const std::string& name) {
            return !name.starts_with(UnifiedPushDistributors::namePrefix);
        });
        return names;
    };
    ask<Names>(bus, busName, method, read, std::move(completion));
}

/// Whether an introspection lists `interface`.
bool isListed(const std::string& introspection, const char* interface)
{
    pugi::xml_document document;
    document.load_buffer(introspection.data(), introspection.size());
    return !document.child("node").find_child_by_attribute("interface", "name", interface).empty();
}

/// What a distributor means by its answer. Throws when it means nothing.
std::variant<UnifiedPushDistributors::Registered, Error>
judge(const std::string& subject, const std::string& result, const std::string& reason)
{
    if (result == "REGISTRATION_SUCCEEDED" || result == "NEW_ENDPOINT")
        return UnifiedPushDistributors::Registered();
    const bool isRefused = result == "REGISTRATION_REFUSED";
    if (!isRefused && result != "REGISTRATION_FAILED")
        throw std::invalid_argument("no result of a registration");

    struct Meaning {
        const char* reason;
        Code code;
        const char* what;
    };
    static constexpr Meaning meanings[] = {
        {"INTERNAL_ERROR", Code::distributorFault,
         "has met an error of its own. Try again later, or restart it."},
        {"NETWORK", Code::distributorOffline,
         "does not reach its server. Connect this device to the network and try again."},
        {"ACTION_REQUIRED", Code::actionRequired, "waits for its user. Open it and do what it asks for."},
        {"VAPID_REQUIRED", Code::refused,
         "takes pushes only from senders with a VAPID key, and this application knows of none. Choose "
         "another "
         "distributor, or another server for this one."},
        {"UNAUTHORIZED", Code::refused,
         "does not allow this application in. Allow it in the settings of the "
         "distributor, or in those of the sandbox."},
    };
    for (const Meaning& meaning : meanings) {
        if (reason == meaning.reason)
            return Push::pushRegistrationError(meaning.code, fmt::format("{} {}", subject, meaning.what));
    }
    return Push::pushRegistrationError(
        Code::refused,
        fmt::format("{} {}: {}. Look into the distributor's settings and log.", subject,
                    isRefused ? "refuses this application" : "has not registered this application",
                    reason.empty() ? "it gives no reason" : "it gives the reason " + excerpt(reason)));
}

} // namespace

UnifiedPushDistributors::UnifiedPushDistributors(SessionBus& bus, std::chrono::milliseconds answerTime)
    : m_bus(bus),
      m_answerTime(answerTime),
      m_busProxy(sdbus::createProxy(bus.connection(), busName, "/org/freedesktop/DBus"))
{}

UnifiedPushDistributors::~UnifiedPushDistributors() = default;

void UnifiedPushDistributors::find(const Completion<Names>& completion)
{
    const Peer bus{*m_busProxy, "The session bus", "Log out and in again.", m_answerTime};
    askForNames(bus, "ListNames", [=](std::variant<Names, Error> running) {
        if (std::holds_alternative<Error>(running)) {
            completion(std::move(running));
            return;
        }
        askForNames(bus, "ListActivatableNames", [=](std::variant<Names, Error> activatable) {
            if (const auto* names = std::get_if<Names>(&activatable)) {
                std::set<std::string> all(names->begin(), names->end());
                all.insert(std::get<Names>(running).begin(), std::get<Names>(running).end());
                activatable = Names(all.begin(), all.end());
            }
            completion(std::move(activatable));
        });
    });
}

void UnifiedPushDistributors::identify(const std::string& name, Completion<Identity> completion)
{
    const Peer distributor = distributorPeer(proxy(name), name, m_answerTime);
    const auto read = [subject =
                           distributor.subject](sdbus::MethodReply& reply) -> std::variant<Identity, Error> {
        std::string introspection;
        reply >> introspection;
        if (isListed(introspection, distributorInterface2))
            return Identity{reply.getSender(), Protocol::version2};
        if (isListed(introspection, distributorInterface1))
            return Identity{reply.getSender(), Protocol::version1};
        return Push::pushRegistrationError(
            Code::distributorFault,
            fmt::format("{} offers no interface that is known here. Update it.", subject));
    };
    ask<Identity>(distributor, "org.freedesktop.DBus.Introspectable", "Introspect", read,
                  std::move(completion));
}

void UnifiedPushDistributors::registerAt(const std::string& name, Protocol protocol,
                                         const Registration& registration, Completion<Registered> completion)
{
    const Peer distributor = distributorPeer(proxy(name), name, m_answerTime);
    if (protocol == Protocol::version1) {
        const auto read = [subject = distributor.subject](sdbus::MethodReply& reply) {
            std::string result;
            std::string reason;
            reply >> result >> reason;
            return judge(subject, result, reason);
        };
        ask<Registered>(distributor, distributorInterface1, "Register", read, std::move(completion),
                        registration.serviceName, registration.token, registration.description);
        return;
    }
    const auto read = [subject = distributor.subject](sdbus::MethodReply& reply) {
        Dictionary answer;
        reply >> answer;
        const auto result = answer.at("success").get<std::string>();
        const auto reason = answer.find("reason");
        return judge(subject, result, reason == answer.end() ? "" : reason->second.get<std::string>());
    };
    const Dictionary arguments{{"service", registration.serviceName},
                               {"token", registration.token},
                               {"description", registration.description}};
    ask<Registered>(distributor, distributorInterface2, "Register", read, std::move(completion), arguments);
}

sdbus::IProxy& UnifiedPushDistributors::proxy(const std::string& name)
{
    auto& proxy = m_proxies[name];
    if (!proxy)
        proxy = sdbus::createProxy(m_bus.connection(), name, "/org/unifiedpush/Distributor");
    return *proxy;
}

} // namespace Platform::Linux
