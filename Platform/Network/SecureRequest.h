#pragma once

#include "Platform/URLSession.h"

#include <cstdint>
#include <string>
#include <string_view>

// What a request must be before it is sent, and what becomes of it at a redirect.

namespace Platform::Network {

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

} // namespace Platform::Network
