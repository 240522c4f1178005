#include "Platform/Linux/Bus/UnifiedPushDistributors.h"

#include "Platform/Encoding.h"
#include "Platform/Linux/Bus/BusClient.h"
#include "Platform/Push/PushRegistrationError.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <array>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace Platform::Linux::Bus {

namespace {

using Code = Push::PushRegistrationErrorCode;
using Names = std::vector<std::string>;

constexpr const char* distributorInterface1 = "org.unifiedpush.Distributor1";
constexpr const char* distributorInterface2 = "org.unifiedpush.Distributor2";
/// How much of a received string an error message quotes, in bytes.
constexpr std::size_t excerptSize = 120;

/// Returns `text` in quotation marks, on one line, cut to `excerptSize`.
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
        return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
    };
    std::replace_if(text.begin(), text.end(), isControl, ' ');
    return "\"" + text + "\"";
}

/// A D-Bus service that we call.
struct Peer {
    BusClient& client;
    std::string service;
    std::string path;
    std::chrono::milliseconds answerTime;
    /// Starts an error message: "The push distributor NAME".
    std::string subject;
    /// Ends an error message: how to fix a failed call.
    const char* fix;

    [[nodiscard]] Error callError(const BusError& error) const
    {
        constexpr std::array silent{".NoReply", ".Timeout", ".TimedOut"};
        const bool isSilent = std::any_of(silent.begin(), silent.end(),
                                          [&](const char* end) { return error.name.ends_with(end); });
        const std::string what =
            isSilent ? "does not respond"
                     : "cannot be called: " + excerpt(error.message.empty() ? error.name : error.message);
        return Push::pushRegistrationError(Code::distributorFault,
                                           fmt::format("{} {}. {}", subject, what, fix));
    }

    [[nodiscard]] Error unexpectedReplyError() const
    {
        return Push::pushRegistrationError(Code::distributorFault,
                                           fmt::format("{} sent an unexpected reply. Update it.", subject));
    }
};

Peer distributorPeer(BusClient& client, const std::string& name, std::chrono::milliseconds answerTime)
{
    return {client,
            name,
            "/org/unifiedpush/Distributor",
            answerTime,
            "The push distributor " + name,
            "Restart or reinstall it."};
}

/// Calls `method`. `read` turns the reply and its sender into the result and throws if the reply is invalid.
template <typename Reply, typename Value, typename Read, typename... Arguments>
void call(const Peer& peer, const char* interface, const char* method, Read read,
          UnifiedPushDistributors::Completion<Value> completion, const Arguments&... arguments)
{
    peer.client.call<Reply>(
        {peer.service, peer.path, interface, method, peer.answerTime},
        [=](const BusAnswer<Reply>& answer) {
            std::variant<Value, Error> result =
                answer.error ? peer.callError(*answer.error) : peer.unexpectedReplyError();
            try {
                if (answer.value)
                    result = read(*answer.value, answer.sender);
            } catch (const std::exception&) {
                // A field is missing, has the wrong type or an unknown value.
            }
            completion(std::move(result));
        },
        arguments...);
}

void requestNames(const Peer& bus, const char* method, UnifiedPushDistributors::Completion<Names> completion)
{
    const auto read = [](Names names, const std::string&) -> std::variant<Names, Error> {
        std::erase_if(names, [](const std::string& name) {
            return !name.starts_with(UnifiedPushDistributors::namePrefix);
        });
        return names;
    };
    call<Names>(bus, busName, method, read, std::move(completion));
}

/// Returns whether introspection XML lists `interface`.
bool isListed(const std::string& introspection, const char* interface)
{
    pugi::xml_document document;
    document.load_buffer(introspection.data(), introspection.size());
    return !document.child("node").find_child_by_attribute("interface", "name", interface).empty();
}

/// Interprets a distributor's reply to a registration. Throws if the result is unknown.
std::variant<UnifiedPushDistributors::Registered, Error>
registrationResult(const std::string& subject, const std::string& result, const std::string& reason)
{
    if (result == "REGISTRATION_SUCCEEDED" || result == "NEW_ENDPOINT")
        return UnifiedPushDistributors::Registered();
    const bool isRefused = result == "REGISTRATION_REFUSED";
    if (!isRefused && result != "REGISTRATION_FAILED")
        throw std::invalid_argument("unknown registration result");

    struct Meaning {
        const char* reason;
        Code code;
        const char* what;
    };
    static constexpr Meaning meanings[] = {
        {"INTERNAL_ERROR", Code::distributorFault,
         "reports an internal error. Try again later, or restart it."},
        {"NETWORK", Code::distributorOffline,
         "cannot reach its server. Connect this device to the network and try again."},
        {"ACTION_REQUIRED", Code::actionRequired,
         "needs the user's attention. Open it and follow its instructions."},
        {"VAPID_REQUIRED", Code::refused,
         "accepts only pushes signed with a VAPID key, which this application does not support. Choose "
         "another "
         "distributor, or another server for this one."},
        {"UNAUTHORIZED", Code::refused,
         "does not accept this application. Allow it in the settings of the distributor or of the sandbox."},
    };
    for (const Meaning& meaning : meanings) {
        if (reason == meaning.reason)
            return Push::pushRegistrationError(meaning.code, fmt::format("{} {}", subject, meaning.what));
    }
    return Push::pushRegistrationError(
        Code::refused,
        fmt::format("{} {}, {}. Check the distributor's settings and log.", subject,
                    isRefused ? "refused to register this application"
                              : "failed to register this application",
                    reason.empty() ? "without giving a reason" : "with the reason " + excerpt(reason)));
}

} // namespace

void UnifiedPushDistributors::find(const Completion<Names>& completion)
{
    const Peer bus{m_client, busName, busPath, m_answerTime, "The session bus", "Log out and in again."};
    requestNames(bus, "ListNames", [=](std::variant<Names, Error> running) {
        if (std::holds_alternative<Error>(running)) {
            completion(std::move(running));
            return;
        }
        requestNames(bus, "ListActivatableNames", [=](std::variant<Names, Error> activatable) {
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
    const Peer distributor = distributorPeer(m_client, name, m_answerTime);
    const auto read = [subject =
                           distributor.subject](const std::string& introspection,
                                                const std::string& sender) -> std::variant<Identity, Error> {
        if (isListed(introspection, distributorInterface2))
            return Identity{sender, Protocol::version2};
        if (isListed(introspection, distributorInterface1))
            return Identity{sender, Protocol::version1};
        return Push::pushRegistrationError(
            Code::distributorFault,
            fmt::format("{} offers no supported UnifiedPush interface. Update it.", subject));
    };
    call<std::string>(distributor, "org.freedesktop.DBus.Introspectable", "Introspect", read,
                      std::move(completion));
}

void UnifiedPushDistributors::registerAt(const std::string& name, Protocol protocol,
                                         const Registration& registration, Completion<Registered> completion)
{
    const Peer distributor = distributorPeer(m_client, name, m_answerTime);
    if (protocol == Protocol::version1) {
        using Reply = std::tuple<std::string, std::string>;
        const auto read = [subject = distributor.subject](const Reply& reply, const std::string&) {
            return registrationResult(subject, std::get<0>(reply), std::get<1>(reply));
        };
        call<Reply>(distributor, distributorInterface1, "Register", read, std::move(completion),
                    registration.serviceName, registration.token, registration.description);
        return;
    }
    const auto read = [subject = distributor.subject](const BusDictionary& reply, const std::string&) {
        const auto result = reply.at("success").get<std::string>();
        const auto reason = reply.find("reason");
        return registrationResult(subject, result,
                                  reason == reply.end() ? "" : reason->second.get<std::string>());
    };
    const BusDictionary arguments{{"service", BusValue(registration.serviceName)},
                                  {"token", BusValue(registration.token)},
                                  {"description", BusValue(registration.description)}};
    call<BusDictionary>(distributor, distributorInterface2, "Register", read, std::move(completion),
                        arguments);
}

} // namespace Platform::Linux::Bus
