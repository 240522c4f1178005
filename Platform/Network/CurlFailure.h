#pragma once

#include "Platform/Network/ProxyEnvironment.h"
#include "Platform/Network/SecureRequest.h"
#include "Platform/URLSession.h"

#include <chrono>
#include <optional>
#include <string_view>

namespace Platform::Network {

/// libcurl's description of a failed transfer.
struct CurlFailure {
    /// A CURLcode.
    int code;
    /// OpenSSL verification results (X509_V_ERR_…).
    long certificateResult = 0;
    long proxyCertificateResult = 0;
    /// The errno value of the connection.
    long errorNumber = 0;
    /// The HTTP status of the proxy's response to CONNECT, or 0.
    long proxyStatus = 0;
    /// Whether the server requested a client certificate and has not responded to the request.
    bool isCertificateRequested = false;
    /// libcurl's error message. Used only for errors whose message cannot quote the request or the response.
    std::string_view detail = {};
};

/// The target of a failed transfer, and whether it was reached.
struct CurlRoute {
    SecureURL target;
    /// Whether the connection to the target was established, directly or through a proxy.
    bool isConnected = false;

    /// Returns the proxy, if there is one and it has not yet connected to the target.
    [[nodiscard]] std::optional<ProxyEnvironment> pendingProxy() const;
};

/// Returns the error that the port reports for a failed transfer.
URLError urlError(const CurlFailure& failure, const CurlRoute& route);

/// Returns the error of a transfer that received nothing for `timeout`.
URLError timeoutError(const CurlRoute& route, std::chrono::seconds timeout);

} // namespace Platform::Network
