#include "Platform/Network/SecureRequest.h"

#include "Platform/ASCII.h"
#include "Platform/Encoding.h"
#include "Platform/URLReference.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

namespace Platform::Network {

namespace {

using Code = URLError::Code;

/// RFC 9110, section 5.6.2.
bool isToken(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        return isASCIIDigit(character) || isASCIILetter(character) ||
               std::string_view("!#$%&'*+-.^_`|~").find(character) != std::string_view::npos;
    });
}

/// Returns whether `text` contains neither spaces nor control characters.
bool isPlain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char character) {
        return static_cast<unsigned char>(character) > ' ' && character != '\x7f';
    });
}

void removeFields(HeaderFields& fields, std::initializer_list<std::string_view> names)
{
    for (const std::string_view name : names) {
        if (const auto found = fields.find(name); found != fields.end())
            fields.erase(found);
    }
}

/// Returns whether `host` contains only characters of a host name, an IPv4 address, or an IPv6 address in
/// brackets with an optional zone.
bool isHost(std::string_view host)
{
    const bool isBracketed = host.starts_with('[') && host.ends_with(']');
    if (isBracketed)
        host = host.substr(1, host.size() - 2);
    const std::string_view others = isBracketed ? ":.%-_~" : "-._~";
    return std::all_of(host.begin(), host.end(), [&](char character) {
        return isASCIIDigit(character) || isASCIILetter(character) ||
               others.find(character) != std::string_view::npos;
    });
}

/// Removes the port and its colon from `authority` and returns the port, or "443" if it has none.
std::string takePort(std::string_view& authority)
{
    const std::size_t colon = authority.find_last_of(":]");
    if (colon == std::string_view::npos || authority[colon] == ']')
        return "443";
    const std::string_view digits = authority.substr(colon + 1);
    authority = authority.substr(0, colon);
    if (digits.empty())
        return "443";
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (error != std::errc() || end != digits.data() + digits.size() || port == 0)
        throw URLError(Code::badURL, "The port of the URL is not a number from 1 to 65535.");
    return std::to_string(port);
}

} // namespace

SecureURL parseSecureURL(const std::string& url)
{
    if (!isPlain(url))
        throw URLError(Code::badURL, "The URL of the request contains a space or control character.");
    const URLParts parts = splitURL(url);
    if (!parts.scheme)
        throw URLError(Code::badURL, "The URL of the request is not absolute.");
    const std::string wholeAuthority = parts.authority.value_or("");
    std::string_view authority = wholeAuthority;
    authority.remove_prefix(authority.rfind('@') + 1); // The user's name and password; npos + 1 is 0.
    const std::string port = takePort(authority);
    const std::string host = lowerCasedASCII(authority);
    const std::string scheme = lowerCasedASCII(*parts.scheme);
    if (scheme == "http")
        throw URLError(Code::appTransportSecurityRequiresSecureConnection,
                       fmt::format("The URL at {} is not secure; only https is allowed.", host));
    if (scheme != "https")
        throw URLError(
            Code::unsupportedURL,
            fmt::format("URLs with the scheme \"{}\" are not supported; only https is allowed.", scheme));
    if (host.empty())
        throw URLError(Code::badURL, "The URL of the request names no host.");
    if (!isHost(host))
        throw URLError(Code::badURL, "The host of the request contains an invalid character.");
    return {.url = fmt::format("https://{}{}{}{}{}{}", host, port == "443" ? "" : ":" + port,
                               parts.path.empty() ? "/" : "", parts.path, parts.query ? "?" : "",
                               parts.query.value_or("")),
            .host = host,
            .port = port};
}

SecureURL parseRedirectURL(const SecureURL& from, std::string_view location)
{
    std::string escaped;
    for (const char character : location) {
        if (character > ' ' && character < '\x7f')
            escaped += character;
        else
            escaped += fmt::format("%{:02X}", static_cast<unsigned char>(character));
    }
    const auto url = resolveURLReference(from.url, escaped);
    if (!url)
        throw URLError(Code::badURL, "The URL of a redirect is malformed.");
    return parseSecureURL(*url);
}

void cleanRequest(URLRequest& request)
{
    if (!isToken(request.httpMethod))
        throw URLError(Code::unknown, "The method of the request contains an invalid character.");
    for (const auto& [name, value] : request.headerFields) {
        if (!isToken(name))
            throw URLError(Code::unknown,
                           fmt::format("The name of the header field \"{}\" contains an invalid character.",
                                       printable(name)));
        if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
            throw URLError(
                Code::unknown,
                fmt::format("The value of the header field \"{}\" has a line break or NUL in it.", name));
    }
    removeFields(request.headerFields, {"Connection", "Content-Length", "Host", "Transfer-Encoding"});
}

bool isRedirect(std::int64_t statusCode)
{
    constexpr std::array<std::int64_t, 5> redirects = {301, 302, 303, 307, 308};
    return std::find(redirects.begin(), redirects.end(), statusCode) != redirects.end();
}

void redirectRequest(URLRequest& request, std::int64_t statusCode, const SecureURL& from, const SecureURL& to)
{
    const bool becomesGet =
        statusCode == 303 ? request.httpMethod != "HEAD" : statusCode <= 302 && request.httpMethod == "POST";
    if (becomesGet) {
        request.httpMethod = "GET";
        request.httpBody.reset();
        removeFields(request.headerFields,
                     {"Content-Encoding", "Content-Language", "Content-Location", "Content-Type"});
    }
    if (from.host != to.host || from.port != to.port)
        removeFields(request.headerFields, {"Authorization", "Cookie", "X-Device-Id"});
    request.url = to.url;
}

} // namespace Platform::Network
