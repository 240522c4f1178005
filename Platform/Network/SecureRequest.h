#pragma once

#include "Platform/URLSession.h"

#include <cstdint>
#include <string>
#include <string_view>

// Validates requests before they are sent and adapts them to redirects.

namespace Platform::Network {

/// A parsed https URL.
struct SecureURL {
    /// Without user name, password and fragment.
    std::string url;
    std::string host;
    std::string port;

    [[nodiscard]] std::string endpoint() const { return host + ":" + port; }
};

/// Parses an https URL. Throws `URLError` if it is malformed or not https.
SecureURL parseSecureURL(const std::string& url);

/// Resolves the `location` of a redirect against the URL of the request. Percent-encodes invalid characters,
/// which some servers send unescaped. Throws like `parseSecureURL`.
SecureURL parseRedirectURL(const SecureURL& from, std::string_view location);

/// Removes the header fields that the transfer sets itself. Throws `URLError` for a method or header field
/// with characters that could inject header lines.
void cleanRequest(URLRequest& request);

/// Returns whether a response with this status and a `Location` field is a redirect.
bool isRedirect(std::int64_t statusCode);

/// Changes a request after a redirect with `statusCode`: sets the URL to `to`, adapts method and body to the
/// status, and removes the credentials if host or port differ from `from`.
void redirectRequest(URLRequest& request, std::int64_t statusCode, const SecureURL& from,
                     const SecureURL& to);

} // namespace Platform::Network
