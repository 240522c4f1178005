#pragma once

#include "Tools/qvctl/NetworkSteps.h"

#include <optional>
#include <string>

namespace Qvctl {

/// The proxy that the environment puts between this device and a server, by the rules that the application's
/// library has for it: `https_proxy`, `all_proxy` and, against them, `no_proxy`, each also in capitals.
struct ProxySettings {
    /// The variable that names it.
    std::string variable;
    /// "http", "https", "socks5", …
    std::string scheme;
    HostAndPort server;
    /// A field value for a tunnel, of the name and the password in the variable; empty without them. A
    /// secret.
    std::string authorization;

    /// Absent when the way to `host` is direct. Throws `StepError` when a variable holds what is no address
    /// of a proxy; its text starts with the variable.
    static std::optional<ProxySettings> fromEnvironment(const std::string& host);
};

} // namespace Qvctl
