#include "Tools/qvctl/TLSProbe.h"

#include "Platform/Error.h"
#include "Tools/qvctl/TLSLibrary.h"

#include <fmt/format.h>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <ctime>
#include <poll.h>

namespace Qvctl {

namespace {

using Platform::Date;
using ProblemKind = CertificateProblem::Kind;

struct ConnectionDeleter {
    void operator()(SSL* connection) const { tls().SSL_free(connection); }
};
struct BufferDeleter {
    void operator()(BIO* buffer) const { tls().BIO_free(buffer); }
};
struct NamesDeleter {
    void operator()(GENERAL_NAMES* names) const { tls().GENERAL_NAMES_free(names); }
};

std::string reasonOf(unsigned long error)
{
    if (ERR_GET_LIB(error) == ERR_LIB_SYS)
        return Platform::errorText(ERR_GET_REASON(error));
    const char* reason = tls().ERR_reason_error_string(error);
    return reason != nullptr ? reason : fmt::format("error {:#x}", error);
}

std::string nameText(const X509_NAME* name)
{
    const std::unique_ptr<BIO, BufferDeleter> memory(tls().BIO_new(tls().BIO_s_mem()));
    tls().X509_NAME_print_ex(memory.get(), name, 0,
                             XN_FLAG_RFC2253 & ~static_cast<unsigned>(ASN1_STRFLGS_ESC_MSB));
    char* text = nullptr;
    const long size = tls().BIO_ctrl(memory.get(), BIO_CTRL_INFO, 0, static_cast<void*>(&text));
    return size > 0 ? std::string(text, static_cast<std::size_t>(size)) : "(no name)";
}

Date dateOf(const ASN1_TIME* time)
{
    std::tm parts{};
    if (tls().ASN1_TIME_to_tm(time, &parts) != 1)
        return {};
    return Date::fromSystemTime(std::chrono::system_clock::from_time_t(::timegm(&parts)));
}

std::string addressText(const ASN1_OCTET_STRING* bytes)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    const bool isVersion4 = tls().ASN1_STRING_length(bytes) == 4;
    const char* result = ::inet_ntop(isVersion4 ? AF_INET : AF_INET6, tls().ASN1_STRING_get0_data(bytes),
                                     text.data(), text.size());
    return result != nullptr ? result : "";
}

std::vector<std::string> namesIn(const X509* certificate)
{
    constexpr std::size_t toldNameCount = 5;
    std::vector<std::string> names;
    const std::unique_ptr<GENERAL_NAMES, NamesDeleter> alternatives(static_cast<GENERAL_NAMES*>(
        tls().X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    const auto* stack = reinterpret_cast<const OPENSSL_STACK*>(alternatives.get());
    const int count = alternatives ? tls().OPENSSL_sk_num(stack) : 0;
    for (int i = 0; i < count && names.size() < toldNameCount; ++i) {
        int type = 0;
        const void* value = tls().GENERAL_NAME_get0_value(
            static_cast<const GENERAL_NAME*>(tls().OPENSSL_sk_value(stack, i)), &type);
        const auto* text = static_cast<const ASN1_STRING*>(value);
        if (type == GEN_DNS)
            names.emplace_back(reinterpret_cast<const char*>(tls().ASN1_STRING_get0_data(text)),
                               static_cast<std::size_t>(tls().ASN1_STRING_length(text)));
        else if (type == GEN_IPADD)
            names.push_back(addressText(text));
    }
    return names;
}

ProblemKind kindOf(int code)
{
    switch (code) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return ProblemKind::date;
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
        return ProblemKind::name;
    default:
        return ProblemKind::chain;
    }
}

/// Remembers the problem and goes on.
int noteProblem(int isGood, X509_STORE_CTX* store)
{
    if (isGood == 1)
        return 1;
    const void* connection =
        tls().X509_STORE_CTX_get_ex_data(store, tls().SSL_get_ex_data_X509_STORE_CTX_idx());
    auto& identity =
        *static_cast<ServerIdentity*>(tls().SSL_get_ex_data(static_cast<const SSL*>(connection), 0));
    const int code = tls().X509_STORE_CTX_get_error(store);
    const X509* certificate = tls().X509_STORE_CTX_get_current_cert(store);
    identity.problems.push_back(
        {kindOf(code), code, certificate != nullptr ? nameText(tls().X509_get_subject_name(certificate)) : "",
         tls().X509_STORE_CTX_get_error_depth(store) == 0});
    return 1;
}

void setHost(SSL* connection, const std::string& host)
{
    if (isIPAddress(host)) {
        tls().X509_VERIFY_PARAM_set1_ip_asc(tls().SSL_get0_param(connection), host.c_str());
        return;
    }
    tls().SSL_set_hostflags(connection, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    const std::string name = host.ends_with('.') ? host.substr(0, host.size() - 1) : host;
    tls().SSL_ctrl(connection, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                   const_cast<char*>(name.c_str()));
    tls().SSL_set1_host(connection, name.c_str());
}

/// Why the handshake broke off.
std::string failureText(int sslError)
{
    const int systemError = errno;
    const unsigned long error = tls().ERR_peek_error();
    switch (ERR_GET_LIB(error) == ERR_LIB_SSL ? ERR_GET_REASON(error) : 0) {
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
    case 0:
        break;
    default:
        return "breaks off the handshake: " + reasonOf(error);
    }
    if (sslError == SSL_ERROR_SYSCALL)
        return "breaks off the handshake: " + (systemError != 0 ? Platform::errorText(systemError)
                                                                : std::string("the connection was closed"));
    return "breaks off the handshake: " + reasonOf(error);
}

/// Drives the handshake to its end.
void finishHandshake(SSL* connection, int socket, std::chrono::milliseconds timeout)
{
    const Deadline deadline(timeout);
    for (;;) {
        tls().ERR_clear_error();
        errno = 0;
        const int result = tls().SSL_connect(connection);
        if (result == 1)
            return;
        const int sslError = tls().SSL_get_error(connection, result);
        if (sslError != SSL_ERROR_WANT_READ && sslError != SSL_ERROR_WANT_WRITE)
            throw StepError(failureText(sslError));
        const bool isReading = sslError == SSL_ERROR_WANT_READ;
        if (!waitFor(socket, isReading ? POLLIN : POLLOUT, deadline))
            throw StepError(fmt::format("does not answer in TLS within {}", durationText(timeout)));
    }
}

void describeServer(SSL* connection, ServerIdentity& identity)
{
    identity.protocol = tls().SSL_get_version(connection);
    const X509* certificate = tls().SSL_get0_peer_certificate(connection);
    if (certificate == nullptr)
        throw StepError("shows no certificate");
    identity.subject = nameText(tls().X509_get_subject_name(certificate));
    identity.issuer = nameText(tls().X509_get_issuer_name(certificate));
    identity.names = namesIn(certificate);
    identity.notBefore = dateOf(tls().X509_get0_notBefore(certificate));
    identity.notAfter = dateOf(tls().X509_get0_notAfter(certificate));
    identity.chainEnd = identity.notAfter;
    const auto* stack = reinterpret_cast<const OPENSSL_STACK*>(tls().SSL_get0_verified_chain(connection));
    const int count = stack != nullptr ? tls().OPENSSL_sk_num(stack) : 0;
    for (int i = 1; i < count; ++i) {
        const auto* issuer = static_cast<const X509*>(tls().OPENSSL_sk_value(stack, i));
        const Date end = dateOf(tls().X509_get0_notAfter(issuer));
        if (end.secondsSinceReferenceDate < identity.chainEnd.secondsSinceReferenceDate)
            identity.chainEnd = end;
    }
}

} // namespace

void TLSProbe::ContextDeleter::operator()(ssl_ctx_st* context) const
{
    tls().SSL_CTX_free(context);
}

TLSProbe::TLSProbe() : m_context(tls().SSL_CTX_new(tls().TLS_client_method()))
{
    if (!m_context)
        throw std::runtime_error("OpenSSL: " + reasonOf(tls().ERR_peek_error()));
    tls().SSL_CTX_ctrl(m_context.get(), SSL_CTRL_SET_MIN_PROTO_VERSION, TLS1_2_VERSION, nullptr);
    tls().SSL_CTX_set_verify(m_context.get(), SSL_VERIFY_PEER, &noteProblem);
    // As the application's library has it: a certificate that is trusted itself needs no authority.
    tls().X509_VERIFY_PARAM_set_flags(tls().SSL_CTX_get0_param(m_context.get()), X509_V_FLAG_PARTIAL_CHAIN);
    constexpr std::array<unsigned char, 12> protocols{2, 'h', '2', 8, 'h', 't', 't', 'p', '/', '1', '.', '1'};
    tls().SSL_CTX_set_alpn_protos(m_context.get(), protocols.data(), protocols.size());
}

void TLSProbe::trustFile(const std::string& file)
{
    tls().ERR_clear_error();
    if (tls().SSL_CTX_load_verify_file(m_context.get(), file.c_str()) != 1)
        throw StepError(reasonOf(tls().ERR_peek_error()));
}

void TLSProbe::trustFolder(const std::string& folder)
{
    tls().ERR_clear_error();
    if (tls().SSL_CTX_load_verify_dir(m_context.get(), folder.c_str()) != 1)
        throw StepError(reasonOf(tls().ERR_peek_error()));
}

ServerIdentity TLSProbe::shakeHands(int socket, const std::string& host,
                                    std::chrono::milliseconds timeout) const
{
    ServerIdentity identity;
    const std::unique_ptr<SSL, ConnectionDeleter> connection(tls().SSL_new(m_context.get()));
    if (!connection || tls().SSL_set_fd(connection.get(), socket) != 1)
        throw std::runtime_error("OpenSSL: " + reasonOf(tls().ERR_peek_error()));
    tls().SSL_set_ex_data(connection.get(), 0, &identity);
    setHost(connection.get(), host);
    finishHandshake(connection.get(), socket, timeout);
    describeServer(connection.get(), identity);
    tls().SSL_shutdown(connection.get());
    return identity;
}

std::string verificationText(int code)
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
        return fmt::format("is not acceptable: {}", tls().X509_verify_cert_error_string(code));
    }
}

} // namespace Qvctl
