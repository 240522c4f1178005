#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Platform::Network {

/// The proxy that the environment sets for https requests, by libcurl's rules: `https_proxy` or `all_proxy`,
/// unless `no_proxy` exempts the host; each name also in capitals.
///
/// Threads: any, as long as none changes the environment.
struct ProxyEnvironment {
    /// The variable that names the proxy.
    std::string variable;
    /// "http", "https", "socks5", … in lower case.
    std::string scheme;
    /// Without the brackets of an IPv6 address.
    std::string host;
    std::uint16_t port = 0;
    /// "name:password", percent-encoded; empty when the variable holds none. Secret.
    std::string user;

    /// Why the value is no address of a proxy that libcurl can use: a clause that begins with the variable
    /// and does not quote the value. Empty when it is one.
    std::string problem;

    /// "host:port", with brackets around an IPv6 address.
    [[nodiscard]] std::string endpoint() const;
    /// "host:port (variable)", without the credentials.
    [[nodiscard]] std::string description() const { return endpoint() + " (" + variable + ")"; }

    /// Absent when requests to `host`, without brackets, go there directly.
    static std::optional<ProxyEnvironment> forHost(const std::string& host);
};

} // namespace Platform::Network
