#include "Tools/qvctl/ProxySettings.h"

#include "Core/Base64.h"
#include "Platform/Network/ProxyEnvironment.h"

#include <boost/url/pct_string_view.hpp>

#include <string_view>

namespace Qvctl {

namespace {

/// "Basic …" for "name:password", percent-encoded.
std::string basicAuthorization(std::string_view user)
{
    const auto encoded = boost::urls::make_pct_string_view(user);
    return "Basic " + Core::base64Encoded(encoded ? encoded->decode() : std::string(user));
}

} // namespace

std::optional<ProxySettings> ProxySettings::fromEnvironment(const std::string& host)
{
    const auto proxy = Platform::Network::ProxyEnvironment::forHost(host);
    if (!proxy)
        return std::nullopt;
    if (!proxy->problem.empty())
        throw StepError(proxy->problem);
    return ProxySettings{.variable = proxy->variable,
                         .scheme = proxy->scheme,
                         .server = {proxy->host, proxy->port},
                         .authorization = proxy->user.empty() ? "" : basicAuthorization(proxy->user)};
}

} // namespace Qvctl
