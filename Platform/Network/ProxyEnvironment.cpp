#include "Platform/Network/ProxyEnvironment.h"

#include "Platform/ASCII.h"

#include <fmt/format.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

namespace Platform::Network {

namespace {

struct Variable {
    std::string name;
    std::string value;
};

/// Returns the first variable that is set and not empty.
std::optional<Variable> firstSet(std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        if (const char* value = std::getenv(name); value != nullptr && *value != '\0')
            return Variable{name, value};
    }
    return std::nullopt;
}

using AddressBytes = std::array<unsigned char, sizeof(in6_addr)>;

/// Returns 4 or 16 if `text` is an IP address, otherwise 0.
std::size_t addressSize(const std::string& text, AddressBytes& bytes)
{
    if (::inet_pton(AF_INET, text.c_str(), bytes.data()) == 1)
        return sizeof(in_addr);
    return ::inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1 ? sizeof(in6_addr) : 0;
}

/// Returns whether the address is in a network such as "10.0.0.0/8".
bool isInNetwork(const std::string& host, const std::string& network)
{
    const auto slash = network.find('/');
    AddressBytes address{};
    AddressBytes prefix{};
    const std::size_t size = addressSize(host, address);
    std::size_t bitCount = 0;
    const char* end = network.data() + network.size();
    if (slash == std::string::npos || size == 0 || addressSize(network.substr(0, slash), prefix) != size ||
        std::from_chars(network.data() + slash + 1, end, bitCount).ptr != end || bitCount > size * 8)
        return false;
    for (std::size_t bit = 0; bit < bitCount; ++bit) {
        const unsigned mask = 0x80U >> (bit % 8);
        if ((address.at(bit / 8) & mask) != (prefix.at(bit / 8) & mask))
            return false;
    }
    return true;
}

bool isNamed(const std::string& host, std::string entry)
{
    if (entry == "*")
        return true;
    if (AddressBytes bytes{}; addressSize(host, bytes) != 0)
        return entry == host || isInNetwork(host, entry);
    if (entry.starts_with('.'))
        entry.erase(0, 1);
    if (entry.ends_with('.'))
        entry.pop_back();
    return !entry.empty() && (host == entry || host.ends_with("." + entry));
}

bool isExempt(const std::string& host, std::string_view list)
{
    constexpr std::string_view separators = ", \t";
    while (!list.empty()) {
        const auto end = std::min(list.find_first_of(separators), list.size());
        if (isNamed(host, lowerCasedASCII(list.substr(0, end))))
            return true;
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return false;
}

bool isSupported(std::string_view scheme)
{
    constexpr std::string_view schemes[] = {"http",    "https",  "socks",  "socks4",
                                            "socks4a", "socks5", "socks5h"};
    return std::find(std::begin(schemes), std::end(schemes), scheme) != std::end(schemes);
}

std::uint16_t defaultPort(std::string_view scheme)
{
    constexpr std::uint16_t securePort = 443;
    constexpr std::uint16_t usualPort = 1080;
    return scheme == "https" ? securePort : usualPort;
}

/// Parses "host:port" into `proxy`, whose scheme is already set.
void parseEndpoint(std::string_view endpoint, ProxyEnvironment& proxy)
{
    proxy.port = defaultPort(proxy.scheme);
    const auto bracket = endpoint.starts_with('[') ? endpoint.find(']') : 0;
    const auto colon = bracket == std::string_view::npos ? bracket : endpoint.find(':', bracket);
    if (colon != std::string_view::npos) {
        const char* end = endpoint.data() + endpoint.size();
        const auto [stop, error] = std::from_chars(endpoint.data() + colon + 1, end, proxy.port);
        if (stop != end || error != std::errc() || proxy.port == 0)
            proxy.problem = proxy.variable + " has an invalid port";
    }
    proxy.host = endpoint.substr(0, colon);
    if (proxy.host.starts_with('['))
        proxy.host = proxy.host.substr(1, proxy.host.size() - 2);
    if (proxy.host.empty())
        proxy.problem = proxy.variable + " has no host";
}

} // namespace

std::string ProxyEnvironment::endpoint() const
{
    const bool isIPv6 = host.find(':') != std::string::npos;
    return fmt::format("{}{}{}:{}", isIPv6 ? "[" : "", host, isIPv6 ? "]" : "", port);
}

std::optional<ProxyEnvironment> ProxyEnvironment::forHost(const std::string& host)
{
    const auto variable = firstSet({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"});
    if (!variable)
        return std::nullopt;
    const std::string wanted = lowerCasedASCII(host.ends_with('.') ? host.substr(0, host.size() - 1) : host);
    if (const auto exceptions = firstSet({"no_proxy", "NO_PROXY"});
        exceptions && isExempt(wanted, exceptions->value))
        return std::nullopt;

    // The value may not be a valid URL: user names and passwords are often not percent-encoded.
    std::string_view rest = variable->value;
    ProxyEnvironment proxy{
        .variable = variable->name, .scheme = "http", .host = {}, .user = {}, .problem = {}};
    if (const auto scheme = rest.find("://"); scheme != std::string_view::npos) {
        proxy.scheme = lowerCasedASCII(rest.substr(0, scheme));
        if (!isSupported(proxy.scheme))
            proxy.problem = proxy.variable + " names a proxy of an unsupported scheme";
        rest.remove_prefix(scheme + 3);
    }
    if (const auto user = rest.rfind('@'); user != std::string_view::npos) {
        proxy.user = rest.substr(0, user);
        rest.remove_prefix(user + 1);
    }
    parseEndpoint(rest.substr(0, rest.find_first_of("/?#")), proxy);
    return proxy;
}

} // namespace Platform::Network
