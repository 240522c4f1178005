#include "Tools/Backend/PushSender.h"

#include "Platform/Linux/LocalPushService.h"
#include "Tools/Backend/WebPushEncryption.h"
#include "Tools/Backend/WebPushSender.h"

#include <boost/algorithm/hex.hpp>
#include <boost/json.hpp>

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
