#include "Platform/Network/CurlFailure.h"

#include "Platform/Encoding.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace Platform::Network {

namespace {

using Code = URLError::Code;

/// `result` is one of OpenSSL's X509_V_ERR_ numbers.
URLError certificateError(long result, std::string_view detail, const std::string& endpoint)
{
    switch (result) {
    // Curl looks at the names before it takes over the verdict of OpenSSL, which is "unspecified" until then.
    case X509_V_OK:
    case X509_V_ERR_UNSPECIFIED:
        return {Code::serverCertificateUntrusted,
                fmt::format("The certificate of {} is for another host; check the host name of the address "
                            "and the names in the certificate.",
                            endpoint)};
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return {
            Code::serverCertificateHasBadDate,
            fmt::format("The certificate of {} is not valid yet; check the clock of this device.", endpoint)};
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return {Code::serverCertificateHasBadDate,
                fmt::format("The certificate of {} has expired; renew it on the server, or check the clock "
                            "of this device.",
                            endpoint)};
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        return {Code::serverCertificateUntrusted,
                fmt::format("The certificate of {} is self-signed and not trusted by this device; add it to "
                            "the trusted ones or have it issued by an authority.",
                            endpoint)};
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
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

} // namespace

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
                                       curl_easy_strerror(static_cast<CURLcode>(failure.code)))};
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

} // namespace Platform::Network
