#pragma once

#include "Platform/Linux/DynamicLibrary.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace Qvctl {

/// The functions of OpenSSL's libssl, and of the libcrypto behind it, that are used here, under their own
/// names. Loaded when a handshake is needed: every other verb would start later for them.
class TLSLibrary {
    Platform::Linux::DynamicLibrary m_library{"libssl.so.3", "libssl3"};

public:
    TLSLibrary() = default;

// NOLINTNEXTLINE(bugprone-macro-parentheses)
#define QV_FUNCTION(name) decltype(&::name) name = m_library.symbol(#name)
    QV_FUNCTION(ASN1_STRING_get0_data);
    QV_FUNCTION(ASN1_STRING_length);
    QV_FUNCTION(ASN1_TIME_to_tm);
    QV_FUNCTION(BIO_ctrl);
    QV_FUNCTION(BIO_free);
    QV_FUNCTION(BIO_new);
    QV_FUNCTION(BIO_s_mem);
    QV_FUNCTION(ERR_clear_error);
    QV_FUNCTION(ERR_peek_error);
    QV_FUNCTION(ERR_reason_error_string);
    QV_FUNCTION(GENERAL_NAMES_free);
    QV_FUNCTION(GENERAL_NAME_get0_value);
    QV_FUNCTION(OPENSSL_sk_num);
    QV_FUNCTION(OPENSSL_sk_value);
    QV_FUNCTION(SSL_CTX_ctrl);
    QV_FUNCTION(SSL_CTX_free);
    QV_FUNCTION(SSL_CTX_get0_param);
    QV_FUNCTION(SSL_CTX_load_verify_dir);
    QV_FUNCTION(SSL_CTX_load_verify_file);
    QV_FUNCTION(SSL_CTX_new);
    QV_FUNCTION(SSL_CTX_set_alpn_protos);
    QV_FUNCTION(SSL_CTX_set_verify);
    QV_FUNCTION(SSL_connect);
    QV_FUNCTION(SSL_ctrl);
    QV_FUNCTION(SSL_free);
    QV_FUNCTION(SSL_get0_param);
    QV_FUNCTION(SSL_get0_peer_certificate);
    QV_FUNCTION(SSL_get0_verified_chain);
    QV_FUNCTION(SSL_get_error);
    QV_FUNCTION(SSL_get_ex_data);
    QV_FUNCTION(SSL_get_ex_data_X509_STORE_CTX_idx);
    QV_FUNCTION(SSL_get_version);
    QV_FUNCTION(SSL_new);
    QV_FUNCTION(SSL_set1_host);
    QV_FUNCTION(SSL_set_ex_data);
    QV_FUNCTION(SSL_set_fd);
    QV_FUNCTION(SSL_set_hostflags);
    QV_FUNCTION(SSL_shutdown);
    QV_FUNCTION(TLS_client_method);
    QV_FUNCTION(X509_NAME_print_ex);
    QV_FUNCTION(X509_STORE_CTX_get_current_cert);
    QV_FUNCTION(X509_STORE_CTX_get_error);
    QV_FUNCTION(X509_STORE_CTX_get_error_depth);
    QV_FUNCTION(X509_STORE_CTX_get_ex_data);
    QV_FUNCTION(X509_VERIFY_PARAM_set1_ip_asc);
    QV_FUNCTION(X509_VERIFY_PARAM_set_flags);
    QV_FUNCTION(X509_get0_notAfter);
    QV_FUNCTION(X509_get0_notBefore);
    QV_FUNCTION(X509_get_ext_d2i);
    QV_FUNCTION(X509_get_issuer_name);
    QV_FUNCTION(X509_get_subject_name);
    QV_FUNCTION(X509_verify_cert_error_string);
#undef QV_FUNCTION
};

/// The library, loaded by the first who asks.
inline const TLSLibrary& tls()
{
    static const TLSLibrary library;
    return library;
}

} // namespace Qvctl
