#include "Platform/Linux/CurlRequest.h"

#include "Platform/ASCII.h"
#include "Platform/Encoding.h"
#include "Platform/Linux/CurlLibrary.h"
#include "Platform/Linux/FileDescriptor.h"
#include "Platform/URLReference.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>

namespace Platform::Linux {

namespace {

using Code = URLError::Code;

struct URLDeleter {
    void operator()(CURLU* url) const { curl().curl_url_cleanup(url); }
};
using ParsedURL = std::unique_ptr<CURLU, URLDeleter>;

std::string part(const ParsedURL& url, CURLUPart part, unsigned flags = 0)
{
    char* text = nullptr;
    if (curl().curl_url_get(url.get(), part, &text, flags) != CURLUE_OK)
        return {};
    std::string result = text;
    curl().curl_free(text);
    return result;
}

/// RFC 9110, section 5.6.2.
bool isToken(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        return isASCIIDigit(character) || isASCIILetter(character) ||
               std::string_view("!#$%&'*+-.^_`|~").find(character) != std::string_view::npos;
    });
}

/// Whether `text` has neither blanks nor control characters.
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

/// What OpenSSL's X509_V_ERR_ numbers come to; its headers are not worth a dependency.
URLError certificateError(long result, std::string_view detail, const std::string& endpoint)
{
    switch (result) {
    // Curl looks at the names before it takes over the verdict of OpenSSL, which is "unspecified" until then.
    case 0:
    case 1:
        return {Code::serverCertificateUntrusted,
                fmt::format("The certificate of {} is for another host; check the host name of the address "
                            "and the names in the certificate.",
                            endpoint)};
    case 9:
        return {
            Code::serverCertificateHasBadDate,
            fmt::format("The certificate of {} is not valid yet; check the clock of this device.", endpoint)};
    case 10:
        return {Code::serverCertificateHasBadDate,
                fmt::format("The certificate of {} has expired; renew it on the server, or check the clock "
                            "of this device.",
                            endpoint)};
    case 18:
        return {Code::serverCertificateUntrusted,
                fmt::format("The certificate of {} is self-signed and not trusted by this device; add it to "
                            "the trusted ones or have it issued by an authority.",
                            endpoint)};
    case 2:
    case 19:
    case 20:
    case 21:
        return {Code::serverCertificateUntrusted,
                fmt::format("The certificate of {} comes from an issuer that this device does not trust; "
                            "check the chain the server sends and the trusted certificates of this device.",
                            endpoint)};
    default:
        return {Code::serverCertificateUntrusted,
                fmt::format("The certificate of {} is not acceptable: {}.", endpoint, detail)};
    }
}

struct Meaning {
    CURLcode curlCode;
    Code code;
    /// Takes host and port.
    const char* sentence;
};

// A header line longer than libcurl reads. Version 7 reports a lack of memory; later ones have a code of
// their own, which the headers of version 7 do not define.
constexpr auto tooLarge = static_cast<CURLcode>(100);
constexpr const char* longHeaderSentence =
    "The header of the response from {} has lines that are too long; check the server.";

constexpr Meaning meanings[] = {
    {CURLE_COULDNT_RESOLVE_HOST, Code::cannotFindHost,
     "The host of {} cannot be found; check its name, the network and the name servers."},
    {CURLE_SSL_CACERT_BADFILE, Code::secureConnectionFailed,
     "The certificates to trust for {} cannot be read; check SSL_CERT_FILE and SSL_CERT_DIR."},
    {CURLE_OUT_OF_MEMORY, Code::dataLengthExceedsMaximum, longHeaderSentence},
    {tooLarge, Code::dataLengthExceedsMaximum, longHeaderSentence},
    {CURLE_GOT_NOTHING, Code::networkConnectionLost,
     "{} closed the connection without an answer; check the log of the server."},
    {CURLE_PARTIAL_FILE, Code::networkConnectionLost,
     "{} closed the connection in the middle of its answer; check the network and the log of the server."},
    {CURLE_RECV_ERROR, Code::networkConnectionLost,
     "The connection to {} broke off before the end of the answer; check the network."},
    {CURLE_SEND_ERROR, Code::networkConnectionLost,
     "The connection to {} broke off while the request was sent; check the network."},
    {CURLE_SEND_FAIL_REWIND, Code::networkConnectionLost,
     "The connection to {} broke off while the request was sent; check the network."},
    {CURLE_HTTP2, Code::networkConnectionLost,
     "The HTTP/2 connection to {} broke down; check the log of the server."},
    {CURLE_HTTP2_STREAM, Code::networkConnectionLost,
     "{} broke off its answer over HTTP/2; check the log of the server."},
    {CURLE_BAD_CONTENT_ENCODING, Code::cannotDecodeContentData,
     "The body from {} cannot be decompressed; check the Content-Encoding that the server sends."},
    {CURLE_WEIRD_SERVER_REPLY, Code::badServerResponse,
     "{} did not answer in HTTP; check that the address is that of the right server."},
    // The scheme was checked before: what is left is an answer in no known version of HTTP.
    {CURLE_UNSUPPORTED_PROTOCOL, Code::badServerResponse,
     "{} did not answer in HTTP; check that the address is that of the right server."},
    {CURLE_URL_MALFORMAT, Code::badURL, "The address of a request to {} is malformed; check it."},
};

/// Whether the proxy, rather than the server behind it, is the end that failed.
bool isFailureOfProxy(const CurlFailure& failure, const ProxyEnvironment& proxy)
{
    switch (failure.code) {
    case CURLE_COULDNT_CONNECT:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_PROXY:
        return true;
    default:
        // Others report with a status that the tunnel is open; SOCKS has none.
        return proxy.scheme.starts_with("http") && failure.proxyStatus / 100 != 2;
    }
}

URLError proxyError(const CurlFailure& failure, const ProxyEnvironment& environment,
                    const std::string& endpoint)
{
    if (!environment.problem.empty())
        return {Code::cannotConnectToHost,
                fmt::format("No connection to {}: {}; correct or unset it.", endpoint, environment.problem)};
    const std::string proxy = printable(environment.description());
    if (failure.proxyStatus != 0)
        return {
            Code::cannotConnectToHost,
            fmt::format("The proxy {} answered {} to the request for a tunnel to {}; check the address of "
                        "the proxy and the rights this device has there.",
                        proxy, failure.proxyStatus, endpoint)};
    switch (failure.code) {
    case CURLE_COULDNT_RESOLVE_PROXY:
        return {Code::cannotFindHost,
                fmt::format("The host of the proxy {} cannot be found; check its name, the network and the "
                            "name servers.",
                            proxy)};
    case CURLE_COULDNT_CONNECT:
        return {
            Code::cannotConnectToHost,
            fmt::format("No connection to the proxy {}: {}; check that the proxy runs and can be reached.",
                        proxy, errorText(static_cast<int>(failure.errorNumber)))};
    case CURLE_PEER_FAILED_VERIFICATION:
        return certificateError(failure.proxyCertificateResult, failure.detail, "the proxy " + proxy);
    case CURLE_SSL_CONNECT_ERROR:
        return {
            Code::secureConnectionFailed,
            fmt::format("No secure connection to the proxy {}: {}; check that it speaks TLS 1.2 or later.",
                        proxy, failure.detail)};
    default:
        return {
            Code::cannotConnectToHost,
            fmt::format("The proxy {} opened no tunnel to {}; check the log of the proxy.", proxy, endpoint)};
    }
}

/// Whether the connection ended before any answer.
bool isBrokenConnection(int code)
{
    constexpr CURLcode codes[] = {CURLE_SSL_CONNECT_ERROR, CURLE_RECV_ERROR,  CURLE_SEND_ERROR,
                                  CURLE_SEND_FAIL_REWIND,  CURLE_GOT_NOTHING, CURLE_HTTP2};
    return std::find(std::begin(codes), std::end(codes), code) != std::end(codes);
}

URLError badPort()
{
    return {Code::badURL, "The port of the address is not a number from 1 to 65535."};
}

} // namespace

SecureURL parseSecureURL(const std::string& url)
{
    if (!isPlain(url))
        throw URLError(Code::badURL, "The address of the request has a blank or control character in it.");

    const ParsedURL parsed(curl().curl_url());
    const CURLUcode code = parsed ? curl().curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(),
                                                        CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS)
                                  : CURLUE_OUT_OF_MEMORY;
    if (code == CURLUE_BAD_PORT_NUMBER)
        throw badPort();
    if (code != CURLUE_OK)
        throw URLError(Code::badURL, "The address of the request is not an absolute URL.");

    SecureURL result;
    result.host = part(parsed, CURLUPART_HOST);
    // The library decodes the host.
    if (!isPlain(result.host))
        throw URLError(Code::badURL, "The host of the request has a blank or control character in it.");
    const std::string scheme = part(parsed, CURLUPART_SCHEME);
    if (scheme == "http")
        throw URLError(Code::appTransportSecurityRequiresSecureConnection,
                       fmt::format("The address at {} is not secure; only https is allowed.", result.host));
    if (scheme != "https")
        throw URLError(Code::unsupportedURL, fmt::format("Addresses of the scheme \"{}\" are not supported; "
                                                         "only https is.",
                                                         scheme));
    // Where an empty host belongs, the library looks for one behind further slashes.
    const std::string_view hierarchy = std::string_view(url).substr(url.find(':') + 1);
    if (result.host.empty() || !hierarchy.starts_with("//") || hierarchy.starts_with("///"))
        throw URLError(Code::badURL, "The address of the request names no host.");
    for (const CURLUPart unwanted : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_FRAGMENT})
        curl().curl_url_set(parsed.get(), unwanted, nullptr, 0);
    std::transform(result.host.begin(), result.host.end(), result.host.begin(), lowerCaseASCII);
    result.port = part(parsed, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    if (result.port == "0")
        throw badPort();
    result.url = part(parsed, CURLUPART_URL);
    return result;
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
        throw URLError(Code::badURL, "The address of a redirect is malformed.");
    return parseSecureURL(*url);
}

void cleanRequest(URLRequest& request)
{
    if (!isToken(request.httpMethod))
        throw URLError(Code::unknown, "The method of the request has a character that no method may have.");
    for (const auto& [name, value] : request.headerFields) {
        if (!isToken(name))
            throw URLError(Code::unknown,
                           fmt::format("The name of the header field \"{}\" has a character that no name may "
                                       "have.",
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

std::optional<ProxyEnvironment> CurlRoute::pendingProxy() const
{
    if (isConnected)
        return std::nullopt;
    const bool isBracketed = target.host.starts_with('[');
    return ProxyEnvironment::forHost(isBracketed ? target.host.substr(1, target.host.size() - 2)
                                                 : target.host);
}

URLError urlError(const CurlFailure& failure, const CurlRoute& route)
{
    const std::string endpoint = route.target.endpoint();
    if (const auto proxy = route.pendingProxy(); proxy && isFailureOfProxy(failure, *proxy))
        return proxyError(failure, *proxy, endpoint);
    if (failure.isCertificateRequested && isBrokenConnection(failure.code))
        return {Code::clientCertificateRequired,
                fmt::format("{} requested a client certificate, which this app does not have, and closed the "
                            "connection; turn client certificates off on the server, or check its log.",
                            endpoint)};
    if (failure.code == CURLE_PEER_FAILED_VERIFICATION)
        return certificateError(failure.certificateResult, failure.detail, endpoint);
    if (failure.code == CURLE_COULDNT_CONNECT)
        return {Code::cannotConnectToHost,
                fmt::format("No connection to {}: {}; check that the server runs and can be reached.",
                            endpoint, errorText(static_cast<int>(failure.errorNumber)))};
    if (failure.code == CURLE_SSL_CONNECT_ERROR || failure.code == CURLE_SSL_CIPHER)
        return {Code::secureConnectionFailed,
                fmt::format("No secure connection to {}: {}; check that the server speaks TLS 1.2 or later.",
                            endpoint, failure.detail)};
    for (const Meaning& meaning : meanings) {
        if (meaning.curlCode == failure.code)
            return {meaning.code, fmt::format(fmt::runtime(meaning.sentence), endpoint)};
    }
    return {Code::unknown, fmt::format("The request to {} failed: {}.", endpoint,
                                       curl().curl_easy_strerror(static_cast<CURLcode>(failure.code)))};
}

URLError timeoutError(const CurlRoute& route, std::chrono::seconds timeout)
{
    const std::string endpoint = route.target.endpoint();
    if (route.isConnected)
        return {Code::timedOut, fmt::format("Nothing came from {} for {} s; check the load of the server and "
                                            "the network.",
                                            endpoint, timeout.count())};
    if (const auto proxy = route.pendingProxy())
        return {Code::timedOut,
                fmt::format("No connection to {} through the proxy {} within {} s; check that the "
                            "proxy runs, and the server behind it.",
                            endpoint, printable(proxy->description()), timeout.count())};
    return {Code::timedOut,
            fmt::format("No connection to {} within {} s; check that the server runs and that no firewall is "
                        "in the way.",
                        endpoint, timeout.count())};
}

} // namespace Platform::Linux
