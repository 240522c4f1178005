#include "Tools/Backend/PushSender.h"

#include "Platform/ASCII.h"
#include "Platform/Linux/LocalPushService.h"
#include "Platform/URLReference.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <boost/algorithm/hex.hpp>
#include <boost/json.hpp>
#include <fmt/format.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <stdexcept>

namespace {

namespace json = boost::json;

/// Empty unless the text is pairs of hexadecimal digits.
std::string bytesOf(std::string_view hexadecimal)
{
    std::string bytes;
    try {
        boost::algorithm::unhex(hexadecimal.begin(), hexadecimal.end(), std::back_inserter(bytes));
    } catch (const boost::algorithm::hex_decode_error&) {
        bytes.clear();
    }
    return bytes;
}

/// Null for anything else.
json::value jsonValue(std::string_view text)
{
    json::error_code error;
    return json::parse(text, error);
}

/// How long the push service keeps a message for a device that is offline.
constexpr std::chrono::seconds timeToLive = std::chrono::hours(24);
constexpr std::chrono::seconds silenceTimeout{30};

/// The parts of an endpoint that the client needs.
struct Address {
    /// "https://push.example.com:8443"
    std::string origin;
    std::string host;
    /// With the query.
    std::string target;
};

Address parseEndpoint(std::string_view endpoint)
{
    const Platform::URLParts parts = Platform::splitURL(endpoint);
    const std::string scheme = Platform::lowerCasedASCII(parts.scheme.value_or(""));
    if (!parts.authority || (scheme != "https" && scheme != "http"))
        throw std::runtime_error("the endpoint is not a URL that begins with https:// or http://");
    const std::string& host = *parts.authority;
    const bool isPrintable =
        std::all_of(endpoint.begin(), endpoint.end(), [](char c) { return c > ' ' && c < '\x7f'; });
    if (host.empty() || host.find('@') != std::string::npos || !isPrintable)
        throw std::runtime_error(
            "the endpoint has no host, contains a user name, or has characters that a URL may not contain");
    return {.origin = fmt::format("{}://{}", scheme, host),
            .host = host,
            .target = fmt::format("{}{}{}{}", parts.path.starts_with('/') ? "" : "/", parts.path,
                                  parts.query ? "?" : "", parts.query.value_or(""))};
}

/// Encrypts `text`, posts it to the endpoint (RFC 8030) and waits for the response. Follows no redirects.
/// Errors name the host but not the rest of the endpoint.
void sendWebPush(const WebPushSubscription& subscription, std::string_view text,
                 const std::filesystem::path& certificateAuthority)
{
    const Address address = parseEndpoint(subscription.endpoint);
    httplib::Client client(address.origin);
    if (!certificateAuthority.empty())
        client.set_ca_cert_path(certificateAuthority.string());
    client.set_connection_timeout(silenceTimeout);
    client.set_read_timeout(silenceTimeout);
    client.set_write_timeout(silenceTimeout);
    // Send the endpoint exactly as the push service wrote it.
    client.set_url_encode(false);
    const httplib::Headers headers{{"TTL", std::to_string(timeToLive.count())},
                                   {"Content-Encoding", "aes128gcm"},
                                   {"Urgency", "normal"}};
    const auto result =
        client.Post(address.target, headers, encryptWebPush(subscription, text), "application/octet-stream");
    if (!result)
        throw std::runtime_error(
            fmt::format("{} cannot be reached: {}", address.host, httplib::to_string(result.error())));
    if (result->status < 200 || result->status > 299)
        throw std::runtime_error(
            fmt::format("{} answered with status {} {}", address.host, result->status, result->reason));
}

} // namespace

std::optional<std::string> uploadedToken(const TestBackend::Request& request)
{
    if (request.method != "POST" || !request.target.ends_with("/token"))
        return std::nullopt;
    const json::value body = jsonValue(request.body);
    const json::object* object = body.if_object();
    const json::value* token = object != nullptr ? object->if_contains("token") : nullptr;
    if (token == nullptr || !token->is_string())
        return std::nullopt;
    return std::string(token->get_string());
}

void pushToDevice(std::string_view token, std::string_view payload, const PushRoutes& routes)
{
    const std::string bytes = bytesOf(token);
    // A random token may begin like an object, so its first byte does not decide.
    if (jsonValue(bytes).is_object()) {
        sendWebPush(WebPushSubscription::parse(bytes), payload, routes.certificateAuthority);
        return;
    }
    if (bytes.size() != Platform::Linux::LocalPushService::tokenSize)
        throw std::runtime_error(
            "the token is neither a Web Push subscription nor one of a local push service");
    const std::string answer = Platform::Linux::sendToLocalPushService(routes.localSocket, payload);
    if (answer != "ok")
        throw std::runtime_error(answer);
}
