#include "Platform/Linux/UnifiedPushConnector.h"

#include "Platform/Linux/SessionBus.h"
#include "Platform/Push/UnifiedPushRegistration.h"

#include <sdbus-c++/sdbus-c++.h>

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace Platform::Linux {

namespace {

using Bytes = std::vector<std::uint8_t>;
using Dictionary = std::map<std::string, sdbus::Variant>;
using Method = UnifiedPushConnector::Method;

constexpr const char* connectorInterface1 = "org.unifiedpush.Connector1";
constexpr const char* connectorInterface2 = "org.unifiedpush.Connector2";

enum class Version { one, two };

struct Fields {
    std::string token;
    std::string content;
    /// What a message is acknowledged by; absent when nobody asks.
    std::optional<std::string> messageIdentifier;
};

std::string text(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

// Both throw what the library or the dictionary throws when a field is missing or of another type.

Fields readVersion1(Method method, sdbus::MethodCall& call)
{
    Fields fields;
    call >> fields.token;
    if (method == Method::newEndpoint) {
        call >> fields.content;
    } else if (method == Method::message) {
        Bytes message;
        call >> message;
        fields.content = text(message);
    }
    return fields;
}

Fields readVersion2(Method method, sdbus::MethodCall& call)
{
    Dictionary arguments;
    call >> arguments;
    Fields fields{arguments.at("token").get<std::string>(), {}, {}};
    if (method == Method::newEndpoint) {
        fields.content = arguments.at("endpoint").get<std::string>();
    } else if (method == Method::message) {
        fields.content = text(arguments.at("message").get<Bytes>());
        if (const auto found = arguments.find("id"); found != arguments.end())
            fields.messageIdentifier = found->second.get<std::string>();
    }
    return fields;
}

bool isWellFormed(Method method, const Fields& fields)
{
    const auto isWithin = [](const std::string& field, std::size_t limit) {
        return !field.empty() && field.size() <= limit;
    };
    if (!isWithin(fields.token, Push::UnifiedPushRegistration::maximumTokenSize))
        return false;
    switch (method) {
    case Method::message:
        return isWithin(fields.content, UnifiedPushConnector::maximumMessageSize);
    case Method::newEndpoint:
        return isWithin(fields.content, UnifiedPushConnector::maximumEndpointSize);
    case Method::unregistered:
        break;
    }
    return true;
}

/// Absent when the call is malformed.
std::optional<Fields> read(Version version, Method method, sdbus::MethodCall& call)
{
    try {
        Fields fields = version == Version::one ? readVersion1(method, call) : readVersion2(method, call);
        if (isWellFormed(method, fields))
            return fields;
    } catch (const std::exception&) {
        // A field is missing or of another type.
    }
    return std::nullopt;
}

} // namespace

struct UnifiedPushConnector::Unanswered {
    Version version;
    sdbus::MethodCall call;
    std::optional<std::string> messageIdentifier;

    void answer(Answer answer, const std::string& reason = {}) const
    {
        try {
            if (answer == Answer::failed) {
                call.createErrorReply(sdbus::Error("org.freedesktop.DBus.Error.Failed", reason)).send();
                return;
            }
            sdbus::MethodReply reply = call.createReply();
            if (version == Version::two) {
                Dictionary results;
                if (answer == Answer::done && messageIdentifier)
                    results.emplace("id", *messageIdentifier);
                reply << results;
            }
            reply.send();
        } catch (const sdbus::Error&) {
            // The bus has gone, and the distributor with it.
        }
    }
};

UnifiedPushConnector::UnifiedPushConnector(SessionBus& bus, std::function<void(Call)> handler)
    : m_handler(std::move(handler)),
      m_object(sdbus::createObject(bus.connection(), "/org/unifiedpush/Connector"))
{
    struct Entry {
        const char* name;
        Method method;
        const char* arguments1;
    };
    // The last one is what older distributors call it.
    constexpr Entry entries[] = {{"Message", Method::message, "says"},
                                 {"NewEndpoint", Method::newEndpoint, "ss"},
                                 {"Unregistered", Method::unregistered, "s"},
                                 {"Unregister", Method::unregistered, "s"}};
    for (const Entry& entry : entries) {
        const auto receiver = [this, method = entry.method](Version version) {
            return [=, this](sdbus::MethodCall call) { receive(method, {version, std::move(call), {}}); };
        };
        sdbus::Flags noReply;
        noReply.set(sdbus::Flags::METHOD_NO_REPLY);
        m_object->registerMethod(connectorInterface1, entry.name, entry.arguments1, "",
                                 receiver(Version::one), noReply);
        if (std::string_view(entry.name) != "Unregister")
            m_object->registerMethod(connectorInterface2, entry.name, "a{sv}", "a{sv}",
                                     receiver(Version::two));
    }
    m_object->finishRegistration();
}

UnifiedPushConnector::~UnifiedPushConnector() = default;

void UnifiedPushConnector::receive(Method method, Unanswered unanswered)
{
    std::optional<Fields> fields = read(unanswered.version, method, unanswered.call);
    if (!fields) {
        unanswered.answer(Answer::ignored);
        return;
    }
    unanswered.messageIdentifier = std::move(fields->messageIdentifier);
    Call call{method, 0, unanswered.call.getSender(), std::move(fields->token), std::move(fields->content)};
    {
        const std::lock_guard lock(m_mutex);
        call.number = ++m_lastNumber;
        m_unanswered.emplace(call.number, std::make_unique<Unanswered>(std::move(unanswered)));
    }
    m_handler(std::move(call));
}

void UnifiedPushConnector::answer(std::uint64_t number, Answer answer, const std::string& reason)
{
    std::unique_ptr<Unanswered> unanswered;
    {
        const std::lock_guard lock(m_mutex);
        if (auto found = m_unanswered.extract(number))
            unanswered = std::move(found.mapped());
    }
    // Outside the lock: the thread of the bus takes it while it holds those of the bus.
    if (unanswered)
        unanswered->answer(answer, reason);
}

} // namespace Platform::Linux
