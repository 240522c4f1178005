// Fuzzes the upload request built from the managed configuration, and redirects. An input has up to four
// fields, separated by 0xFF, which UTF-8 never contains: base domain, device identifier, API key, and
// redirect location.

#include "Core/APIClientConfigProvider.h"
#include "Core/Constants.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/URLComposition.h"
#include "Fuzzers/Fuzzing.h"
#include "Platform/Network/SecureRequest.h"
#include "Platform/OutcomeRecorder.h"
#include "PushNotifications/RemoteNotificationHandler.h"
#include "Tests/Fakes/FakeURLSession.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>

using namespace Platform::Network;
using Fuzzers::require;
using Platform::URLError, Platform::URLRequest;
namespace Constants = Core::Constants;

namespace {

using Fields = std::array<std::string, 4>;

Fields split(std::string_view input)
{
    Fields fields;
    for (std::string& text : fields) {
        const std::string_view piece = input.substr(0, input.find('\xFF'));
        text = piece;
        input.remove_prefix(std::min(piece.size() + 1, input.size()));
    }
    return fields;
}

/// A configuration that has passed validation.
class Configuration final : public Core::APIClientConfigProvider {
public:
    explicit Configuration(const Fields& fields)
        : m_config(Core::validateManagedConfiguration(
              {{std::string(Constants::ManagedConfigKeys::BASE_DOMAIN), fields[0]},
               {std::string(Constants::ManagedConfigKeys::DEVICE_ID), fields[1]},
               {std::string(Constants::ManagedConfigKeys::API_KEY), fields[2]}}))
    {}
    [[nodiscard]] std::optional<std::string> baseDomain() const override { return m_config.baseDomain; }
    [[nodiscard]] std::optional<std::string> apiKey() const override { return m_config.apiKey; }
    [[nodiscard]] std::optional<std::string> deviceId() const override { return m_config.deviceId; }

private:
    const Core::ValidatedConfig m_config;
};

/// Returns the request that uploads a device token; absent if the configuration does not allow one.
std::optional<URLRequest> uploadRequest(const Configuration& configuration)
{
    Fuzzers::Device device;
    ManualScheduler& scheduler = device.scheduler;
    FakeURLSession session(scheduler.mainQueue);
    FakeUserDefaults store;
    Platform::OutcomeRecorder outcomes({store, scheduler, scheduler.mainQueue, scheduler});
    PushNotifications::RemoteNotificationHandler handler(
        {device.logger, device.domains, configuration, session, scheduler.utilityQueue, outcomes});
    handler.uploadTokenToBackend("0a1b2c");
    scheduler.runUntilIdle();
    const auto lines = device.log.takeLines();
    require(lines.size() == 1 && session.requests.size() <= 1, "an upload completes with one log line");
    if (session.requests.empty())
        return std::nullopt;
    require(configuration.baseDomain() && configuration.deviceId(),
            "a request is sent only if it is configured");
    return session.requests.front();
}

/// Parts of an https URL, as written.
struct URLParts {
    explicit URLParts(std::string_view url)
    {
        url.remove_prefix(std::string_view("https://").size());
        authority = url.substr(0, url.find_first_of("/?#"));
        url.remove_prefix(authority.size());
        path = url.substr(0, url.find_first_of("?#"));
    }
    std::string_view authority;
    std::string_view path;
};

std::optional<SecureURL> secureURL(const std::string& url)
{
    return Fuzzers::accepted<URLError>([&] { return parseSecureURL(url); });
}

void requireAddress(const std::string& url, std::string_view baseDomain)
{
    require(url.find_first_not_of(
                "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~:/?#[]@!$&'()*+,;"
                "=%") == std::string_view::npos,
            "a URL contains only URL characters");
    require(URLParts(url).authority == URLParts(baseDomain).authority,
            "a request goes to the configured host");
    const auto parsed = Core::parseURL(url);
    require(parsed && parsed->buffer() == url, "a composed URL parses to itself");
    const auto secure = secureURL(url);
    const auto base = secureURL(std::string("https://").append(URLParts(baseDomain).authority));
    require(!secure || (base && secure->endpoint() == base->endpoint()),
            "both URL parsers see the same host");
}

void examinePath(const std::string& url, std::string baseDomain, const std::string& deviceId)
{
    if (!baseDomain.ends_with('/'))
        baseDomain += '/';
    const std::string_view base = URLParts(baseDomain).path;
    const std::string reference =
        "apis/mdm/backend/device-api/v1/device/apple/devices/" + deviceId + "/token";
    const auto pathEnd = std::min(reference.find_first_of("?#"), reference.size());
    const std::string written =
        std::string(base.empty() ? "/" : base.substr(0, base.rfind('/') + 1)) + reference.substr(0, pathEnd);
    const bool hasDotSegments = written.find("/.") != std::string::npos;
    require(hasDotSegments || URLParts(url).path == written, "the path is unchanged");
    require(url.ends_with(reference.substr(pathEnd)), "the query is unchanged");
    if (const auto secure = secureURL(url))
        require(URLParts(secure->url).path == URLParts(url).path, "the path is sent as composed");
}

void examineQuery(const std::string& url, const std::string& name, const std::string& value)
{
    auto composed = Core::parseURL(url).value();
    Core::setQueryItems(composed, {{name, value}, {value, std::nullopt}});
    const std::string text(composed.buffer());
    requireAddress(text, url);
    const auto items = composed.encoded_params();
    require(items.size() == 2 && (*items.begin()).key.decode() == name &&
                (*items.begin()).value.decode() == value,
            "a query decodes to its items");
}

bool carriesCredentials(const URLRequest& request)
{
    return request.headerFields.contains(Constants::authorizationHeader) ||
           request.headerFields.contains(Constants::deviceIdHeader) ||
           request.headerFields.contains("Cookie");
}

void examineRedirects(const URLRequest& request, const SecureURL& from, const SecureURL& to)
{
    require(to.url.starts_with("https://") &&
                URLParts(to.url).authority.find('@') == std::string_view::npos &&
                to.url.find_first_of("# \r\n\t") == std::string::npos && !to.host.empty(),
            "a redirect goes to an https URL without user and fragment");
    const auto again = secureURL(to.url);
    require(again && again->url == to.url && again->endpoint() == to.endpoint(),
            "a secure URL parses to itself");
    for (const std::int64_t status : {301, 302, 303, 307, 308}) {
        URLRequest next = request;
        redirectRequest(next, status, from, to);
        require(next.url == to.url, "a redirect is followed to its location");
        require(from.endpoint() == to.endpoint() || !carriesCredentials(next),
                "no credentials are sent to another host");
        require(next.httpBody.has_value() == (next.httpMethod == "POST"), "only a POST request has a body");
    }
}

/// Cleans and redirects a request as the session does.
void examineTransfer(URLRequest request, const std::string& location)
{
    const bool isClean = Fuzzers::accepted<URLError>([&] {
                             cleanRequest(request);
                             return true;
                         }).has_value();
    if (!isClean)
        return;
    for (const auto& [name, value] : request.headerFields)
        require((name + value).find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos,
                "a header contains no line break or NUL");
    const auto from = secureURL(request.url);
    const auto to =
        from ? Fuzzers::accepted<URLError>([&] { return parseRedirectURL(*from, location); }) : std::nullopt;
    if (to)
        examineRedirects(request, *from, *to);
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    const Fields fields = split(input);
    const Configuration configuration(fields);
    const auto request = uploadRequest(configuration);
    if (!request)
        return;
    requireAddress(request->url, *configuration.baseDomain());
    examinePath(request->url, *configuration.baseDomain(), *configuration.deviceId());
    examineQuery(request->url, fields[1], fields[2]);
    const auto identifier = request->headerFields.find(Constants::deviceIdHeader);
    require(identifier != request->headerFields.end() && identifier->second == configuration.deviceId(),
            "the device identifier is sent as configured");
    require(request->headerFields.contains(Constants::authorizationHeader) ==
                configuration.apiKey().has_value(),
            "the key is sent if there is one");
    examineTransfer(*request, fields[3]);
}
