#include "Tools/Backend/PushSender.h"

#include "Platform/Linux/LocalPushService.h"
#include "Tools/Backend/WebPushEncryption.h"
#include "Tools/Backend/WebPushSender.h"

#include <boost/json.hpp>

#include <charconv>
#include <stdexcept>

namespace {

namespace json = boost::json;

/// Empty for anything but pairs of hexadecimal digits.
std::string bytesOf(std::string_view hexadecimal)
{
    std::string bytes;
    for (; hexadecimal.size() >= 2; hexadecimal.remove_prefix(2)) {
        unsigned char byte = 0;
        const auto [end, error] = std::from_chars(hexadecimal.data(), hexadecimal.data() + 2, byte, 16);
        if (error != std::errc() || end != hexadecimal.data() + 2)
            return {};
        bytes += static_cast<char>(byte);
    }
    return hexadecimal.empty() ? bytes : std::string();
}

} // namespace

std::optional<std::string> uploadedToken(const TestBackend::Request& request)
{
    if (request.method != "POST" || !request.target.ends_with("/token"))
        return std::nullopt;
    json::error_code error;
    const json::value body = json::parse(request.body, error);
    const json::object* object = body.if_object();
    const json::value* token = object != nullptr ? object->if_contains("token") : nullptr;
    if (error || token == nullptr || !token->is_string())
        return std::nullopt;
    return std::string(token->get_string());
}

void pushToDevice(std::string_view token, std::string_view payload, const PushRoutes& routes)
{
    const std::string bytes = bytesOf(token);
    if (bytes.starts_with('{')) {
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
