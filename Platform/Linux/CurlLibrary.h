#pragma once

#include "Platform/Linux/DynamicLibrary.h"

// Its checks of types are macros that go by the names of functions.
#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>
#undef curl_easy_getinfo
#undef curl_easy_setopt
#undef curl_multi_setopt
#undef curl_share_setopt
#include <openssl/ssl.h>

namespace Platform::Linux {

/// The functions of libcurl that are used here, under their own names. The library is loaded with the first
/// request: with the twenty that it needs it takes three megabytes, and a quarter of the time in which a
/// program starts.
///
/// Threads: any.
class CurlLibrary {
    DynamicLibrary m_library{"libcurl.so.4", "libcurl4"};

public:
    CurlLibrary() = default;

// NOLINTNEXTLINE(bugprone-macro-parentheses)
#define QV_FUNCTION(name) decltype(&::name) name = m_library.symbol(#name)
    QV_FUNCTION(curl_easy_cleanup);
    QV_FUNCTION(curl_easy_getinfo);
    QV_FUNCTION(curl_easy_init);
    QV_FUNCTION(curl_easy_reset);
    QV_FUNCTION(curl_easy_setopt);
    QV_FUNCTION(curl_easy_strerror);
    QV_FUNCTION(curl_free);
    QV_FUNCTION(curl_global_init);
    QV_FUNCTION(curl_multi_add_handle);
    QV_FUNCTION(curl_multi_cleanup);
    QV_FUNCTION(curl_multi_info_read);
    QV_FUNCTION(curl_multi_init);
    QV_FUNCTION(curl_multi_perform);
    QV_FUNCTION(curl_multi_poll);
    QV_FUNCTION(curl_multi_remove_handle);
    QV_FUNCTION(curl_multi_setopt);
    QV_FUNCTION(curl_multi_strerror);
    QV_FUNCTION(curl_multi_wakeup);
    QV_FUNCTION(curl_share_cleanup);
    QV_FUNCTION(curl_share_init);
    QV_FUNCTION(curl_share_setopt);
    QV_FUNCTION(curl_slist_append);
    QV_FUNCTION(curl_slist_free_all);
    QV_FUNCTION(curl_url);
    QV_FUNCTION(curl_url_cleanup);
    QV_FUNCTION(curl_url_get);
    QV_FUNCTION(curl_url_set);
#undef QV_FUNCTION
};

/// The function of libssl that libcurl's hook for its TLS context needs. libcurl has loaded the library.
///
/// Threads: any.
class TLSContextLibrary {
    DynamicLibrary m_library{"libssl.so.3", "libssl3"};

public:
    TLSContextLibrary() = default;

    decltype(&::SSL_CTX_set_cert_cb) SSL_CTX_set_cert_cb = m_library.symbol("SSL_CTX_set_cert_cb");
};

inline const TLSContextLibrary& tls()
{
    static const TLSContextLibrary library;
    return library;
}

/// The library, loaded by the first who asks.
inline const CurlLibrary& curl()
{
    static const CurlLibrary library;
    return library;
}

} // namespace Platform::Linux
