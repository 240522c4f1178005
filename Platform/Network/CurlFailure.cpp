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
    // libcurl checks the host name before it copies OpenSSL's result, which is "unspecified" until then.
    case X509_V_OK:
    case X509_V_ERR_UNSPECIFIED:
        return {
            Code::serverCertificateUntrusted,
            fmt::format("The certificate of {} is for another host; check the host name in the URL and the "
                        "names in the certificate.",
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
                            "the device's trusted certificates, or use one from a certificate authority.",
                            endpoint)};
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        return {Code::serverCertificateUntrusted,
                fmt::format("The certificate of {} comes from an issuer that this device does not trust; "
                            "check the certificate chain that the server sends and the device's trusted "
                            "certificates.",
                            endpoint)};
    default:
        return {Code::serverCertificateUntrusted,
                fmt::format("The certificate of {} was rejected: {}.", endpoint, detail)};
    }
}

struct ErrorMapping {
    CURLcode curlCode;
    Code code;
    /// The format string; its argument is host and port.
    const char* sentence;
};

// A header line that is too long for libcurl, or too many lines, which version 8 limits. Version 7 reports it
// as CURLE_OUT_OF_MEMORY; later versions have a separate code, which the headers of version 7 do not define.
constexpr auto tooLarge = static_cast<CURLcode>(100);
constexpr const char* largeHeaderSentence =
    "The response from {} has a header line that is too long, or too many of them; check the server.";

constexpr ErrorMapping errorMappings[] = {
    {CURLE_COULDNT_RESOLVE_HOST, Code::cannotFindHost,
     "The host of {} cannot be found; check the host name, the network and the name servers."},
    {CURLE_SSL_CACERT_BADFILE, Code::secureConnectionFailed,
     "The trusted certificates for {} cannot be read; check SSL_CERT_FILE and SSL_CERT_DIR."},
    {CURLE_OUT_OF_MEMORY, Code::dataLengthExceedsMaximum, largeHeaderSentence},
    {tooLarge, Code::dataLengthExceedsMaximum, largeHeaderSentence},
    {CURLE_GOT_NOTHING, Code::networkConnectionLost,
     "{} closed the connection without a response; check the server's log."},
    {CURLE_PARTIAL_FILE, Code::networkConnectionLost,
     "{} closed the connection in the middle of its response; check the network and the server's log."},
    {CURLE_RECV_ERROR, Code::networkConnectionLost,
     "The connection to {} was lost before the end of the response; check the network."},
    {CURLE_SEND_ERROR, Code::networkConnectionLost,
     "The connection to {} was lost while sending the request; check the network."},
    {CURLE_SEND_FAIL_REWIND, Code::networkConnectionLost,
     "The connection to {} was lost while sending the request; check the network."},
    {CURLE_HTTP2, Code::networkConnectionLost, "The HTTP/2 connection to {} failed; check the server's log."},
    {CURLE_HTTP2_STREAM, Code::networkConnectionLost,
     "{} aborted its HTTP/2 response; check the server's log."},
    {CURLE_BAD_CONTENT_ENCODING, Code::cannotDecodeContentData,
     "The response body from {} cannot be decompressed; check the Content-Encoding that the server sends."},
    {CURLE_WEIRD_SERVER_REPLY, Code::badServerResponse,
     "The response from {} is not HTTP; check that the URL names the right server."},
    // The scheme was checked before, so this is an unknown HTTP version.
    {CURLE_UNSUPPORTED_PROTOCOL, Code::badServerResponse,
     "The response from {} is not HTTP; check that the URL names the right server."},
    {CURLE_URL_MALFORMAT, Code::badURL, "The URL of a request to {} is malformed; check it."},
};

/// Returns whether the proxy failed, rather than the server behind it.
bool isFailureOfProxy(const CurlFailure& failure, const ProxyEnvironment& proxy)
{
    switch (failure.code) {
    case CURLE_COULDNT_CONNECT:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_PROXY:
        return true;
    default:
        // An HTTP proxy reports an open tunnel with a 2xx status; a SOCKS proxy reports no status.
        return proxy.scheme.starts_with("http") && failure.proxyStatus / 100 != 2;
    }
}

URLError proxyError(const CurlFailure& failure, const ProxyEnvironment& environment,
                    const std::string& endpoint)
{
    if (!environment.problem.empty())
        return {Code::cannotConnectToHost,
                fmt::format("Cannot connect to {}: {}; correct or unset it.", endpoint, environment.problem)};
    const std::string proxy = printable(environment.description());
    if (failure.proxyStatus != 0)
        return {
            Code::cannotConnectToHost,
            fmt::format("The proxy {} responded with status {} to the request for a tunnel to {}; check the "
                        "proxy's address and whether it permits this device.",
                        proxy, failure.proxyStatus, endpoint)};
    switch (failure.code) {
    case CURLE_COULDNT_RESOLVE_PROXY:
        return {Code::cannotFindHost,
                fmt::format("The host of the proxy {} cannot be found; check the host name, the network and "
                            "the name servers.",
                            proxy)};
    case CURLE_COULDNT_CONNECT:
        return {
            Code::cannotConnectToHost,
            fmt::format("Cannot connect to the proxy {}: {}; check that the proxy is running and reachable.",
                        proxy, errorText(static_cast<int>(failure.errorNumber)))};
    case CURLE_PEER_FAILED_VERIFICATION:
        return certificateError(failure.proxyCertificateResult, failure.detail, "the proxy " + proxy);
    case CURLE_SSL_CONNECT_ERROR:
        return {
            Code::secureConnectionFailed,
            fmt::format("Cannot make a secure connection to the proxy {}: {}; check that it supports TLS 1.2 "
                        "or later.",
                        proxy, failure.detail)};
    default:
        return {
            Code::cannotConnectToHost,
            fmt::format("The proxy {} did not open a tunnel to {}; check the proxy's log.", proxy, endpoint)};
    }
}

/// Returns whether the connection ended before any response.
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
                            "connection; disable client certificates on the server, or check its log.",
                            endpoint)};
    if (failure.code == CURLE_PEER_FAILED_VERIFICATION)
        return certificateError(failure.certificateResult, failure.detail, endpoint);
    if (failure.code == CURLE_COULDNT_CONNECT)
        return {Code::cannotConnectToHost,
                fmt::format("Cannot connect to {}: {}; check that the server is running and reachable.",
                            endpoint, errorText(static_cast<int>(failure.errorNumber)))};
    if (failure.code == CURLE_SSL_CONNECT_ERROR || failure.code == CURLE_SSL_CIPHER)
        return {
            Code::secureConnectionFailed,
            fmt::format("Cannot make a secure connection to {}: {}; check that the server supports TLS 1.2 "
                        "or later.",
                        endpoint, failure.detail)};
    for (const ErrorMapping& mapping : errorMappings) {
        if (mapping.curlCode == failure.code)
            return {mapping.code, fmt::format(fmt::runtime(mapping.sentence), endpoint)};
    }
    return {Code::unknown, fmt::format("The request to {} failed: {}.", endpoint,
                                       curl_easy_strerror(static_cast<CURLcode>(failure.code)))};
}

URLError timeoutError(const CurlRoute& route, std::chrono::seconds timeout)
{
    const std::string endpoint = route.target.endpoint();
    if (route.isConnected)
        return {Code::timedOut, fmt::format("{} sent nothing for {} s; check the load of the server and the "
                                            "network.",
                                            endpoint, timeout.count())};
    if (const auto proxy = route.pendingProxy())
        return {Code::timedOut,
                fmt::format("Cannot connect to {} through the proxy {} within {} s; check that the proxy and "
                            "the server are running.",
                            endpoint, printable(proxy->description()), timeout.count())};
    return {Code::timedOut,
            fmt::format("Cannot connect to {} within {} s; check that the server is running and that no "
                        "firewall blocks the connection.",
                        endpoint, timeout.count())};
}

} // namespace Platform::Network
