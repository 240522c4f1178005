#pragma once

#include "Platform/Network/ProxyEnvironment.h"
#include "Platform/Network/SecureRequest.h"
#include "Platform/URLSession.h"

#include <chrono>
#include <optional>
#include <string_view>

namespace Platform::Network {

/// What curl knows of a transfer that failed.
struct CurlFailure {
    /// A CURLcode.
    int code;
    /// X509_V_ERR_ numbers.
    long certificateResult = 0;
    long proxyCertificateResult = 0;
    /// errno of the connection.
    long errorNumber = 0;
    /// The proxy's answer when asked for a tunnel, or 0.
    long proxyStatus = 0;
    /// The server requested a client certificate and has not answered the request.
    bool isCertificateRequested = false;
    /// Curl's own words; told only where they cannot quote the request or the answer.
    std::string_view detail = {};
};

/// How far a transfer had come when it failed.
struct CurlRoute {
    SecureURL target;
    /// The connection to the target was established, through a proxy or directly.
    bool isConnected = false;

    /// The proxy that had to connect to the target; absent once it has, and without a proxy.
    [[nodiscard]] std::optional<ProxyEnvironment> pendingProxy() const;
};

/// The failure in the terms of the port.
URLError urlError(const CurlFailure& failure, const CurlRoute& route);

/// The error of a transfer for which nothing arrived for `timeout`.
URLError timeoutError(const CurlRoute& route, std::chrono::seconds timeout);

} // namespace Platform::Network
