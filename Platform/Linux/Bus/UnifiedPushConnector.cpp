#include "Platform/Linux/Bus/UnifiedPushConnector.h"

#include "Platform/Linux/Bus/BusClient.h"
#include "Platform/Push/UnifiedPushRegistration.h"

#include <cstdint>
#include <exception>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace Platform::Linux::Bus {

namespace {

using Bytes = std::vector<std::uint8_t>;
using Method = UnifiedPushCall::Method;
using Answer = UnifiedPushCall::Answer;
using Handler = std::function<void(const UnifiedPushCall&)>;

constexpr const char* connectorInterface1 = "org.unifiedpush.Connector1";
constexpr const char* connectorInterface2 = "org.unifiedpush.Connector2";

enum class Version { one, two };

struct Fields {
    std::string token;
    std::string content;
    /// Identifies the message in the acknowledgment. Absent if the message has none.
    std::optional<std::string> messageIdentifier;
};

std::string text(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

std::optional<Fields> readVersion1(Method method, const BusRequest& request)
{
    switch (method) {
    case Method::message:
        if (const auto arguments = request.read<std::tuple<std::string, Bytes>>())
            return Fields{std::get<0>(*arguments), text(std::get<1>(*arguments)), {}};
        break;
    case Method::newEndpoint:
        if (const auto arguments = request.read<std::tuple<std::string, std::string>>())
            return Fields{std::get<0>(*arguments), std::get<1>(*arguments), {}};
        break;
    case Method::unregistered:
        if (const auto token = request.read<std::string>())
            return Fields{*token, {}, {}};
        break;
    }
    return std::nullopt;
}

/// Throws `std::exception` when a field is missing or has the wrong type.
std::optional<Fields> readVersion2(Method method, const BusRequest& request)
{
    const auto arguments = request.read<BusDictionary>();
    if (!arguments)
        return std::nullopt;
    Fields fields{arguments->at("token").get<std::string>(), {}, {}};
    if (method == Method::newEndpoint) {
        fields.content = arguments->at("endpoint").get<std::string>();
    } else if (method == Method::message) {
        fields.content = text(arguments->at("message").get<Bytes>());
        if (const auto found = arguments->find("id"); found != arguments->end())
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
        return isWithin(fields.content, UnifiedPushCall::maximumMessageSize);
    case Method::newEndpoint:
        return isWithin(fields.content, UnifiedPushCall::maximumEndpointSize);
    case Method::unregistered:
        break;
    }
    return true;
}

/// Returns no value for a malformed call.
std::optional<Fields> read(Version version, Method method, const BusRequest& request)
{
    try {
        auto fields = version == Version::one ? readVersion1(method, request) : readVersion2(method, request);
        if (fields && isWellFormed(method, *fields))
            return fields;
    } catch (const std::exception&) {
        // A field is missing or has the wrong type.
    }
    return std::nullopt;
}

void reply(const BusRequest& request, Version version, const std::optional<std::string>& messageIdentifier)
{
    if (version == Version::one) {
        request.reply();
        return;
    }
    BusDictionary results;
    if (messageIdentifier)
        results.emplace("id", BusValue(*messageIdentifier));
    request.reply(results);
}

DispatchQueue::Work receive(Version version, Method method, const Handler& handler, const BusRequest& request)
{
    const auto fields = read(version, method, request);
    if (!fields) {
        reply(request, version, std::nullopt);
        return {};
    }
    const auto respond = [=, identifier = fields->messageIdentifier](Answer answer,
                                                                     const std::string& reason) {
        if (answer == Answer::failed)
            request.fail(reason);
        else
            reply(request, version, answer == Answer::done ? identifier : std::nullopt);
    };
    const UnifiedPushCall call{method, request.sender(), fields->token, fields->content, respond};
    return [handler, call] { handler(call); };
}

} // namespace

void exportUnifiedPushConnector(BusClient& client, const Handler& handler)
{
    struct Entry {
        const char* name;
        Method method;
        const char* arguments1;
    };
    // "Unregister" is the name that older distributors use for "Unregistered".
    constexpr Entry entries[] = {{"Message", Method::message, "says"},
                                 {"NewEndpoint", Method::newEndpoint, "ss"},
                                 {"Unregistered", Method::unregistered, "s"},
                                 {"Unregister", Method::unregistered, "s"}};
    constexpr const char* path = "/org/unifiedpush/Connector";
    for (const Entry& entry : entries) {
        const auto receiver = [&](Version version) {
            return [=, method = entry.method](const BusRequest& request) {
                return receive(version, method, handler, request);
            };
        };
        client.exportMethod(path, {.interface = connectorInterface1,
                                   .name = entry.name,
                                   .inputSignature = entry.arguments1,
                                   .outputSignature = "",
                                   .hasReply = false,
                                   .handler = receiver(Version::one)});
        if (std::string_view(entry.name) != "Unregister")
            client.exportMethod(path, {.interface = connectorInterface2,
                                       .name = entry.name,
                                       .inputSignature = "a{sv}",
                                       .outputSignature = "a{sv}",
                                       .handler = receiver(Version::two)});
    }
}

} // namespace Platform::Linux::Bus
