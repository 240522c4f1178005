#pragma once

#include "Platform/Linux/ProxyEnvironment.h"
#include "Platform/URLSession.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Platform::Linux {

/// An https address taken apart.
struct SecureURL {
    /// Without user name, password and fragment.
    std::string url;
    std::string host;
    std::string port;

    [[nodiscard]] std::string endpoint() const { return host + ":" + port; }
};

/// Throws `URLError` for what is no address, or none of https.
SecureURL parseSecureURL(const std::string& url);

/// Resolves the `location` of a redirect against the address that answered with it. Percent-encodes the
/// characters that no URL may hold, which some servers send unescaped. Throws as `parseSecureURL` does.
SecureURL parseRedirectURL(const SecureURL& from, std::string_view location);

/// Throws `URLError` for a method or header field that would break out of its line. Removes the header fields
/// that the transfer sets itself.
void cleanRequest(URLRequest& request);

/// Whether an answer of this status asks for the same elsewhere, given that it names a place.
bool isRedirect(std::int64_t statusCode);

/// Turns a request answered with `statusCode` into the one for the place it was sent on to: method and body
/// as the status asks, and no credentials for a place other than `from`.
void redirectRequest(URLRequest& request, std::int64_t statusCode, const SecureURL& from,
                     const SecureURL& to);

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

} // namespace Platform::Linux
