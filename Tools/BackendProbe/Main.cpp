// The network half of `qvctl doctor`. It is a program of its own because libcurl would more than double the
// duration of every other command of qvctl. It connects to the backend as the app does, closes the
// connection after the TLS handshake and prints a `ProbeResult`.

#include "Platform/Error.h"
#include "Platform/Network/CertificateEnvironment.h"
#include "Platform/Storage/FileDescriptor.h"
#include "Tools/BackendProbe/ProbeResult.h"

#include <boost/json.hpp>
#include <curl/curl.h>
#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <memory>
#include <netdb.h>
#include <sys/socket.h>

namespace {

using BackendProbe::ProbeResult;
using Platform::errorText;
using Platform::Network::CertificateEnvironment;
using Platform::Storage::FileDescriptor;

/// One connection, as the callbacks of libcurl and OpenSSL see it.
struct Probe {
    CURL* handle = nullptr;
    /// "http", "https", "socks5", …; empty without a proxy.
    std::string proxyScheme = {};
    ProbeResult result = {};
    /// Duplicates of the sockets for `result.addresses`, to see which of them are connected.
    std::vector<FileDescriptor> sockets = {};
    bool hasBegunHandshake = false;
    /// OpenSSL's last error in the handshake.
    unsigned long tlsError = 0;
    /// What libcurl says about the failure.
    std::array<char, CURL_ERROR_SIZE> detail = {};

    template <typename Value>
    void set(CURLoption option, Value value) const
    {
        curl_easy_setopt(handle, option, value);
    }
    [[nodiscard]] long number(CURLINFO which) const
    {
        long value = 0;
        curl_easy_getinfo(handle, which, &value);
        return value;
    }
    /// Empty if no socket is connected. (CURLINFO_PRIMARY_IP of libcurl 8.10 and later is empty until the
    /// handshake ends.)
    [[nodiscard]] std::string connectedAddress() const
    {
        for (std::size_t i = 0; i < sockets.size(); ++i) {
            sockaddr_storage peer{};
            socklen_t size = sizeof peer;
            if (::getpeername(sockets[i].get(), reinterpret_cast<sockaddr*>(&peer), &size) == 0)
                return result.addresses[i];
        }
        return {};
    }
};

/// The text that `print` writes to an OpenSSL stream.
template <typename Print>
std::string printed(const Print& print)
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> stream(BIO_new(BIO_s_mem()), &BIO_free);
    print(stream.get());
    char* text = nullptr;
    const long size = BIO_get_mem_data(stream.get(), &text);
    return {text, static_cast<std::size_t>(std::max(size, 0L))};
}

std::string nameText(const X509_NAME* name)
{
    constexpr unsigned long form = XN_FLAG_RFC2253 & ~static_cast<unsigned>(ASN1_STRFLGS_ESC_MSB);
    return printed([=](BIO* stream) { X509_NAME_print_ex(stream, name, 0, form); });
}

/// The first few hosts that the certificate is valid for.
std::vector<std::string> hostsOf(const X509* certificate)
{
    constexpr std::size_t maximumCount = 5;
    const int place = X509_get_ext_by_NID(certificate, NID_subject_alt_name, -1);
    X509_EXTENSION* extension = X509_get_ext(certificate, place);
    if (extension == nullptr)
        return {};
    // "DNS:localhost, IP Address:127.0.0.1".
    const std::string text = printed([=](BIO* stream) { X509V3_EXT_print(stream, extension, 0, 0); });
    std::vector<std::string> hosts;
    for (std::string_view rest = text; !rest.empty() && hosts.size() < maximumCount;) {
        const std::string_view name = rest.substr(0, rest.find(", "));
        hosts.emplace_back(name.substr(name.find(':') + 1));
        rest.remove_prefix(std::min(name.size() + 2, rest.size()));
    }
    return hosts;
}

std::int64_t secondsOf(const ASN1_TIME* time)
{
    std::tm parts{};
    return ASN1_TIME_to_tm(time, &parts) == 1 ? ::timegm(&parts) : 0;
}

std::string verificationText(long code)
{
    switch (code) {
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        return "is self-signed, and this device does not trust it";
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        return "comes from an authority that this device does not trust";
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        return "comes from an authority that this device does not know, or the server leaves out a "
               "certificate between them";
    default:
        return fmt::format("is not acceptable: {}", X509_verify_cert_error_string(code));
    }
}

Probe& probeOf(const SSL* connection)
{
    return *static_cast<Probe*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
}

/// Called for each certificate of the chain, root first. Accepts it in any case, so that every problem is
/// found.
int noteCertificate(int isGood, X509_STORE_CTX* store)
{
    const void* connection = X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx());
    ProbeResult& result = probeOf(static_cast<const SSL*>(connection)).result;
    const X509* certificate = X509_STORE_CTX_get_current_cert(store);
    if (certificate == nullptr)
        return isGood;
    const int code = X509_STORE_CTX_get_error(store);
    const bool isOutdated = code == X509_V_ERR_CERT_HAS_EXPIRED || code == X509_V_ERR_CERT_NOT_YET_VALID;
    if (isGood == 0 && !isOutdated && result.chainProblem.empty())
        result.chainProblem = verificationText(code);
    result.subject = nameText(X509_get_subject_name(certificate));
    result.issuer = nameText(X509_get_issuer_name(certificate));
    result.names = hostsOf(certificate);
    result.notBefore = secondsOf(X509_get0_notBefore(certificate));
    result.notAfter = secondsOf(X509_get0_notAfter(certificate));
    result.chainEnd = std::min(result.chainEnd, result.notAfter);
    const bool isOfServer = X509_STORE_CTX_get_error_depth(store) == 0;
    if (isGood == 0 && isOutdated && !isOfServer && result.outdatedAuthority.empty())
        result.outdatedAuthority = result.subject;
    X509_STORE_CTX_set_error(store, X509_V_OK);
    return 1;
}

void noteState(const SSL* connection, int place, int outcome)
{
    Probe& probe = probeOf(connection);
    probe.result.protocol = SSL_get_version(connection);
    // libcurl clears OpenSSL's error queue and keeps only a message.
    if (place == SSL_CB_CONNECT_EXIT && outcome <= 0)
        probe.tlsError = ERR_peek_error();
}

/// Called for a handshake with the proxy as well, which is left to libcurl.
CURLcode prepareHandshake(CURL*, void* tlsContext, void* data) noexcept
{
    auto& probe = *static_cast<Probe*>(data);
    if (probe.proxyScheme == "https" && probe.number(CURLINFO_HTTP_CONNECTCODE) / 100 != 2)
        return CURLE_OK;
    probe.hasBegunHandshake = true;
    probe.result.address = probe.connectedAddress();
    auto* context = static_cast<SSL_CTX*>(tlsContext);
    SSL_CTX_set_app_data(context, &probe);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, &noteCertificate);
    SSL_CTX_set_info_callback(context, &noteState);
    // The protocols that the app offers. If libcurl offered them itself, it would start to speak HTTP/2.
    constexpr std::array<unsigned char, 12> protocols{2, 'h', '2', 8, 'h', 't', 't', 'p', '/', '1', '.', '1'};
    SSL_CTX_set_alpn_protos(context, protocols.data(), protocols.size());
    return CURLE_OK;
}

/// Opens the socket that libcurl would open itself.
curl_socket_t openSocket(void* data, curlsocktype, curl_sockaddr* address) noexcept
{
    auto& probe = *static_cast<Probe*>(data);
    std::array<char, NI_MAXHOST> text{};
    ::getnameinfo(&address->addr, address->addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST);
    const int descriptor = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    probe.result.addresses.emplace_back(text.data());
    probe.sockets.emplace_back(::dup(descriptor));
    return descriptor;
}

std::string handshakeReason(const Probe& probe)
{
    switch (ERR_GET_LIB(probe.tlsError) == ERR_LIB_SSL ? ERR_GET_REASON(probe.tlsError) : 0) {
    case SSL_R_UNSUPPORTED_PROTOCOL:
    case SSL_R_TLSV1_ALERT_PROTOCOL_VERSION:
        return "speaks only versions of TLS below 1.2";
    case SSL_R_WRONG_VERSION_NUMBER:
    case SSL_R_HTTP_REQUEST:
    case SSL_R_PACKET_LENGTH_TOO_LONG:
        return "answers with something other than TLS, as a server for plain HTTP does";
    case SSL_R_UNEXPECTED_EOF_WHILE_READING:
        return "closes the connection in the middle of the handshake";
    case SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE:
        return "refuses the handshake: it has no cipher in common with this device, or asks for a "
               "certificate of it";
    default:
        return fmt::format("breaks off the handshake: {}", probe.detail.data());
    }
}

void noteFailure(Probe& probe, CURLcode code, const std::string& timeout)
{
    const bool isLate = code == CURLE_OPERATION_TIMEDOUT;
    const auto note = [&](const char* step, const std::string& lateReason, const std::string& reason) {
        probe.result.failedStep = step;
        probe.result.reason = isLate ? lateReason : reason;
    };
    if (probe.hasBegunHandshake)
        note("handshake", "does not answer in TLS within " + timeout, handshakeReason(probe));
    else if (probe.sockets.empty())
        note("lookUp", "no name server answers within " + timeout,
             code == CURLE_COULDNT_RESOLVE_HOST || code == CURLE_COULDNT_RESOLVE_PROXY
                 ? "no name server knows that name, or none answers"
                 : curl_easy_strerror(code));
    else if (code == CURLE_COULDNT_CONNECT || (isLate && probe.connectedAddress().empty()))
        note("connect", "no answer within " + timeout, errorText(static_cast<int>(probe.result.lastError)));
    else
        note("tunnel", "does not answer when asked for a way to the backend",
             fmt::format("{}: {}",
                         code == CURLE_PEER_FAILED_VERIFICATION ? "has a certificate that is not acceptable"
                                                                : "opens no way to the backend",
                         probe.detail.data()));
}

std::string secondsText(std::chrono::milliseconds duration)
{
    return fmt::format("{:g} s", std::chrono::duration<double>(duration).count());
}

/// Sets what every connection needs: address, certificates to trust and version of TLS.
void prepare(Probe& probe, const char* url)
{
    probe.set(CURLOPT_URL, url);
    probe.set(CURLOPT_PROTOCOLS_STR, "https");
    probe.set(CURLOPT_NOSIGNAL, 1L);
    // Do not wait for a name server that does not answer.
    probe.set(CURLOPT_QUICK_EXIT, 1L);
    probe.set(CURLOPT_ERRORBUFFER, probe.detail.data());
    for (const auto option : {CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO})
        probe.set(option, probe.result.trustedFile.c_str());
    const std::string folder = CertificateEnvironment::read().folder;
    for (const auto option : {CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH}) {
        if (!folder.empty())
            probe.set(option, folder.c_str());
    }
    probe.set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
}

void connect(Probe& probe, const char* url, std::chrono::milliseconds timeout)
{
    prepare(probe, url);
    probe.set(CURLOPT_CONNECT_ONLY, 1L);
    probe.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeout.count()));
    probe.set(CURLOPT_OPENSOCKETDATA, &probe);
    probe.set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
    probe.set(CURLOPT_SSL_ENABLE_ALPN, 0L);
    // Without certificates to trust, libcurl connects only if it need not verify any.
    probe.set(CURLOPT_SSL_VERIFYPEER, probe.result.trustProblem.empty() ? 1L : 0L);
    probe.set(CURLOPT_SSL_CTX_DATA, &probe);
    probe.set(CURLOPT_SSL_CTX_FUNCTION, &prepareHandshake);
    const CURLcode code = curl_easy_perform(probe.handle);
    probe.result.lastError = probe.number(CURLINFO_OS_ERRNO);
    // libcurl compares the names. `noteCertificate` has accepted all other problems.
    probe.result.isForOtherHost = code == CURLE_PEER_FAILED_VERIFICATION && probe.hasBegunHandshake;
    if (code != CURLE_OK && !probe.result.isForOtherHost)
        noteFailure(probe, code, secondsText(timeout));
}

/// Sends HEAD on a connection of its own, without credentials, and follows no redirect.
void request(ProbeResult& result, const char* url, std::chrono::milliseconds timeout)
{
    Probe probe;
    probe.result.trustedFile = result.trustedFile;
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(), &curl_easy_cleanup);
    probe.handle = handle.get();
    prepare(probe, url);
    probe.set(CURLOPT_NOBODY, 1L);
    probe.set(CURLOPT_TIMEOUT_MS, static_cast<long>(timeout.count()));
    const CURLcode code = curl_easy_perform(probe.handle);
    curl_off_t duration = 0;
    curl_easy_getinfo(probe.handle, CURLINFO_TOTAL_TIME_T, &duration);
    result.responseMilliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::microseconds(duration)).count();
    result.status = code == CURLE_OK ? probe.number(CURLINFO_RESPONSE_CODE) : 0;
    if (code == CURLE_OPERATION_TIMEDOUT)
        result.responseProblem = "sends no response within " + secondsText(timeout);
    else if (code != CURLE_OK)
        result.responseProblem = fmt::format("sends no response: {}", curl_easy_strerror(code));
}

void readTrustedFile(Probe& probe)
{
    probe.result.trustedFile = CertificateEnvironment::read().file;
    const char* file = nullptr;
    if (probe.result.trustedFile.empty())
        curl_easy_getinfo(probe.handle, CURLINFO_CAINFO, &file);
    if (file != nullptr)
        probe.result.trustedFile = file;
    const std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(), &X509_STORE_free);
    if (X509_STORE_load_file(store.get(), probe.result.trustedFile.c_str()) == 1)
        return;
    const unsigned long error = ERR_peek_error();
    const char* reason = ERR_reason_error_string(error);
    probe.result.trustProblem = reason != nullptr ? reason : errorText(ERR_GET_REASON(error));
}

} // namespace

// Arguments: none, to read the trusted certificates only; or the address, the time limit in milliseconds and
// the scheme of the proxy, which is empty without one; and, to send a request too, its address.
int main(int argc, char** argv)
{
    Probe probe{.proxyScheme = argc >= 4 ? argv[3] : ""};
    // Closes the connection before `probe` ends, which the callbacks need.
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(), &curl_easy_cleanup);
    probe.handle = handle.get();
    readTrustedFile(probe);
    const std::chrono::milliseconds timeout(argc >= 4 ? std::stol(argv[2]) : 0);
    if (argc >= 4)
        connect(probe, argv[1], timeout);
    if (argc == 5 && probe.result.failedStep.empty())
        request(probe.result, argv[4], timeout);
    fmt::print("{}\n", boost::json::serialize(boost::json::value_from(probe.result)));
}
