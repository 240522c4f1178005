#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Platform::Network {

/// The proxy for https requests that is set in the environment. Follows libcurl's rules: `https_proxy` or
/// `all_proxy`, in lower or upper case, unless `no_proxy` exempts the host.
///
/// Threads: any, as long as no thread changes the environment.
struct ProxyEnvironment {
    /// The name of the variable that sets the proxy.
    std::string variable;
    /// "http", "https", "socks5", … in lower case.
    std::string scheme;
    /// Without the brackets of an IPv6 address.
    std::string host;
    std::uint16_t port = 0;
    /// "name:password", percent-encoded, or empty. Secret.
    std::string user;

    /// Why libcurl cannot use the variable's value: a clause that starts with the variable's name and does
    /// not quote the value. Empty if the value is valid.
    std::string problem;

    /// Returns "host:port", with brackets around an IPv6 address.
    [[nodiscard]] std::string endpoint() const;
    /// Returns "host:port (variable)".
    [[nodiscard]] std::string description() const { return endpoint() + " (" + variable + ")"; }

    /// Returns the proxy for requests to `host` (an IPv6 address has no brackets). Absent if they go directly
    /// to the host.
    static std::optional<ProxyEnvironment> forHost(const std::string& host);
};

} // namespace Platform::Network
