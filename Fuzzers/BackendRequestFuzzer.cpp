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

/// Returns the part between "https://" and the path, query or fragment.
std::string_view authorityOf(std::string_view url)
{
    url.remove_prefix(std::string_view("https://").size());
    return url.substr(0, url.find_first_of("/?#"));
}

/// Returns the result of `parse`; absent if it rejects the URL.
template <typename Parse>
std::optional<SecureURL> accepted(Parse parse)
{
    try {
        return parse();
    } catch (const URLError& error) {
        require(*error.what() != '\0', "a rejected URL has a reason");
        return std::nullopt;
    }
}

std::optional<SecureURL> secureURL(const std::string& url)
{
    return accepted([&] { return parseSecureURL(url); });
}

void requireAddress(std::string_view url, std::string_view baseDomain)
{
    require(url.find_first_not_of(
                "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~:/?#[]@!$&'()*+,;"
                "=%") == std::string_view::npos,
            "a URL contains only URL characters");
    require(authorityOf(url) == authorityOf(baseDomain), "a request goes to the configured host");
    const auto parsed = Core::parseURL(url);
    require(parsed && parsed->buffer() == url, "a composed URL parses to itself");
}

/// Returns the part between the authority and the query or fragment.
std::string_view pathOf(std::string_view url)
{
    url.remove_prefix(std::string_view("https://").size() + authorityOf(url).size());
    return url.substr(0, url.find_first_of("?#"));
}

void examinePath(const std::string& url, std::string baseDomain, const std::string& deviceId)
{
    if (!baseDomain.ends_with('/'))
        baseDomain += '/';
    const std::string_view base = pathOf(baseDomain);
    const std::string reference =
        "apis/mdm/backend/device-api/v1/device/apple/devices/" + deviceId + "/token";
    const auto pathEnd = std::min(reference.find_first_of("?#"), reference.size());
    const std::string written =
        std::string(base.empty() ? "/" : base.substr(0, base.rfind('/') + 1)) + reference.substr(0, pathEnd);
    const bool hasDotSegments = written.find("/.") != std::string::npos;
    require(hasDotSegments || pathOf(url) == written, "the path is unchanged");
    require(url.ends_with(reference.substr(pathEnd)), "the query is unchanged");
    if (const auto secure = secureURL(url))
        require(pathOf(secure->url) == pathOf(url), "the path is sent as composed");
}

void examineAddress(const std::string& url, const std::string& baseDomain)
{
    requireAddress(url, baseDomain);
    const auto secure = secureURL(url);
    const auto base = secureURL(std::string("https://").append(authorityOf(baseDomain)));
    require(!secure || (base && secure->endpoint() == base->endpoint()),
            "both URL parsers see the same host");
}

void examineQuery(const std::string& url, const std::string& name, const std::string& value)
{
    auto composed = Core::parseURL(url).value();
    Core::setQueryItems(composed, {{name, value}, {value, std::nullopt}});
    const std::string text(composed.buffer());
    requireAddress(text, url);
    Core::setQueryItems(composed, {{name, value}, {value, std::nullopt}});
    require(composed.buffer() == text, "setting the same query again changes nothing");
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

/// Returns the cleaned request; absent if it must not be sent.
std::optional<URLRequest> cleaned(URLRequest request)
{
    try {
        cleanRequest(request);
    } catch (const URLError&) {
        return std::nullopt;
    }
    for (const auto& [name, value] : request.headerFields)
        require((name + value).find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos,
                "a header contains no line break or NUL");
    return request;
}

void examineRedirects(const URLRequest& request, const std::string& location)
{
    const auto from = secureURL(request.url);
    const auto to = from ? accepted([&] { return parseRedirectURL(*from, location); }) : std::nullopt;
    if (!to)
        return;
    require(to->url.starts_with("https://") && authorityOf(to->url).find('@') == std::string_view::npos &&
                to->url.find_first_of("# \r\n\t") == std::string::npos && !to->host.empty(),
            "a redirect goes to an https URL without user and fragment");
    const auto again = secureURL(to->url);
    require(again && again->url == to->url && again->endpoint() == to->endpoint(),
            "a secure URL parses to itself");
    for (const std::int64_t status : {301, 302, 303, 307, 308}) {
        URLRequest next = request;
        redirectRequest(next, status, *from, *to);
        require(next.url == to->url, "a redirect is followed to its location");
        require(from->endpoint() == to->endpoint() || !carriesCredentials(next),
                "no credentials are sent to another host");
        require(next.httpBody.has_value() == (next.httpMethod == "POST"), "only a POST request has a body");
    }
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    const Fields fields = split(input);
    const Configuration configuration(fields);
    const auto request = uploadRequest(configuration);
    if (!request)
        return;
    examineAddress(request->url, *configuration.baseDomain());
    examinePath(request->url, *configuration.baseDomain(), *configuration.deviceId());
    examineQuery(request->url, fields[1], fields[2]);
    const auto field = [&](std::string_view name) {
        const auto found = request->headerFields.find(name);
        return found != request->headerFields.end() ? std::optional(found->second) : std::nullopt;
    };
    require(field(Constants::deviceIdHeader) == configuration.deviceId(),
            "the device identifier is sent as configured");
    require(field(Constants::authorizationHeader).has_value() == configuration.apiKey().has_value(),
            "the key is sent if there is one");
    if (const auto clean = cleaned(*request))
        examineRedirects(*clean, fields[3]);
}
