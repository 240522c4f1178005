#pragma once

#include "Platform/Linux/DynamicLibrary.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>

namespace Platform::Linux {

/// The functions of OpenSSL's libcrypto that are used here, under their own names. The library is loaded with
/// the first subscription for pushes: it takes a megabyte and a half.
///
/// Threads: any.
class CryptoLibrary {
    DynamicLibrary m_library{"libcrypto.so.3", "libssl3"};

public:
    CryptoLibrary() = default;

// NOLINTNEXTLINE(bugprone-macro-parentheses)
#define QV_FUNCTION(name) decltype(&::name) name = m_library.symbol(#name)
    QV_FUNCTION(BN_bn2binpad);
    QV_FUNCTION(BN_clear_free);
    QV_FUNCTION(ERR_clear_error);
    QV_FUNCTION(EVP_CIPHER_CTX_ctrl);
    QV_FUNCTION(EVP_CIPHER_CTX_free);
    QV_FUNCTION(EVP_CIPHER_CTX_new);
    QV_FUNCTION(EVP_DecryptFinal_ex);
    QV_FUNCTION(EVP_DecryptInit_ex);
    QV_FUNCTION(EVP_DecryptUpdate);
    QV_FUNCTION(EVP_PKEY_CTX_add1_hkdf_info);
    QV_FUNCTION(EVP_PKEY_CTX_free);
    QV_FUNCTION(EVP_PKEY_CTX_new_from_pkey);
    QV_FUNCTION(EVP_PKEY_CTX_new_id);
    QV_FUNCTION(EVP_PKEY_CTX_set1_hkdf_key);
    QV_FUNCTION(EVP_PKEY_CTX_set1_hkdf_salt);
    QV_FUNCTION(EVP_PKEY_CTX_set_hkdf_md);
    QV_FUNCTION(EVP_PKEY_Q_keygen);
    QV_FUNCTION(EVP_PKEY_copy_parameters);
    QV_FUNCTION(EVP_PKEY_derive);
    QV_FUNCTION(EVP_PKEY_derive_init);
    QV_FUNCTION(EVP_PKEY_derive_set_peer);
    QV_FUNCTION(EVP_PKEY_free);
    QV_FUNCTION(EVP_PKEY_get_bn_param);
    QV_FUNCTION(EVP_PKEY_get_octet_string_param);
    QV_FUNCTION(EVP_PKEY_new);
    QV_FUNCTION(EVP_PKEY_private_check);
    QV_FUNCTION(EVP_PKEY_set1_encoded_public_key);
    QV_FUNCTION(EVP_aes_128_gcm);
    QV_FUNCTION(EVP_sha256);
    QV_FUNCTION(OPENSSL_cleanse);
    QV_FUNCTION(RAND_priv_bytes);
    QV_FUNCTION(d2i_PrivateKey);
#undef QV_FUNCTION
};

/// The library, loaded by the first who asks.
inline const CryptoLibrary& crypto()
{
    static const CryptoLibrary library;
    return library;
}

} // namespace Platform::Linux
