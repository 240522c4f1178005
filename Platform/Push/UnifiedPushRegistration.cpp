#include "Platform/Push/UnifiedPushRegistration.h"

#include "Platform/ASCII.h"
#include "Platform/Encoding.h"
#include "Platform/URLReference.h"
#include "Platform/UserDefaults.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <openssl/rand.h>
#include <utility>

namespace Platform::Push {

namespace {

constexpr std::string_view tokenKey = "UnifiedPush.Token";
constexpr std::string_view privateKeyKey = "UnifiedPush.PrivateKey";
constexpr std::string_view authSecretKey = "UnifiedPush.AuthSecret";
constexpr std::string_view endpointKey = "UnifiedPush.Endpoint";

/// Returns a random UUID (RFC 9562, version 4).
std::string randomUUID()
{
    Data bytes(16);
    if (::RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size())) != 1)
        throw WebPushError("The system cannot provide random bytes for a registration.");
    bytes[6] = (bytes[6] & std::byte{0x0f}) | std::byte{0x40};
    bytes[8] = (bytes[8] & std::byte{0x3f}) | std::byte{0x80};
    std::string text = hexadecimalText(bytes);
    for (const std::size_t dash : {8U, 13U, 18U, 23U})
        text.insert(dash, 1, '-');
    return text;
}

bool isThisDevice(const std::string& host)
{
    in_addr address{};
    constexpr unsigned loopbackNet = 127;
    return equalsIgnoringASCIICase(host, "localhost") || host == "[::1]" ||
           (::inet_pton(AF_INET, host.c_str(), &address) == 1 &&
            ::ntohl(address.s_addr) >> 24U == loopbackNet);
}

} // namespace

bool isUsablePushEndpoint(std::string_view endpoint)
{
    const bool hasURLCharacters = std::all_of(endpoint.begin(), endpoint.end(), [](char character) {
        return character > ' ' && character <= '~' &&
               std::string_view("\"<>\\^`{|}").find(character) == std::string_view::npos;
    });
    const URLParts parts = splitURL(endpoint);
    if (!hasURLCharacters || !parts.scheme || !parts.authority ||
        parts.authority->find('@') != std::string::npos)
        return false;
    const std::string& authority = *parts.authority;
    const auto hostSize = authority.starts_with('[') ? authority.find(']') + 1 : authority.find(':');
    const std::string host = authority.substr(0, hostSize);
    return !host.empty() && (equalsIgnoringASCIICase(*parts.scheme, "https") ||
                             (equalsIgnoringASCIICase(*parts.scheme, "http") && isThisDevice(host)));
}

UnifiedPushRegistration::UnifiedPushRegistration(std::string token, WebPushKeys keys)
    : m_token(std::move(token)), m_keys(std::move(keys))
{}

std::optional<UnifiedPushRegistration> UnifiedPushRegistration::stored(const UserDefaults& store)
{
    const std::string token = store.text(tokenKey).value_or("");
    const auto keys = WebPushKeys::fromStored(store.data(privateKeyKey).value_or(Data()),
                                              store.data(authSecretKey).value_or(Data()));
    if (token.empty() || token.size() > maximumTokenSize || !keys)
        return std::nullopt;
    UnifiedPushRegistration registration(token, *keys);
    registration.m_distributor = store.text(distributorKey).value_or("");
    registration.m_replacedDistributor = store.text(replacedDistributorKey).value_or("");
    registration.m_endpoint = store.text(endpointKey).value_or("");
    return registration;
}

std::optional<UnifiedPushRegistration> UnifiedPushRegistration::make(UserDefaults& store)
{
    UnifiedPushRegistration registration(randomUUID(), WebPushKeys::generate());
    const std::array<UserDefaults::Entry, 6> entries{{{tokenKey, registration.m_token},
                                                      {privateKeyKey, registration.m_keys.privateKey()},
                                                      {authSecretKey, registration.m_keys.authSecret()},
                                                      {distributorKey, ""},
                                                      {replacedDistributorKey, ""},
                                                      {endpointKey, ""}}};
    return store.write(entries) ? std::optional(std::move(registration)) : std::nullopt;
}

bool UnifiedPushRegistration::setEndpoint(UserDefaults& store, const std::string& distributor,
                                          const std::string& endpoint)
{
    if (m_isEndpointStored && m_distributor == distributor && m_endpoint == endpoint)
        return true;
    if (m_distributor != distributor)
        m_replacedDistributor = std::exchange(m_distributor, distributor);
    m_endpoint = endpoint;
    const std::array<UserDefaults::Entry, 3> entries{{{distributorKey, m_distributor},
                                                      {replacedDistributorKey, m_replacedDistributor},
                                                      {endpointKey, m_endpoint}}};
    m_isEndpointStored = store.write(entries);
    return m_isEndpointStored;
}

} // namespace Platform::Push
