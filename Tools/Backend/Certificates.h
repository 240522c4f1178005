#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

struct evp_pkey_st;
struct x509_st;

/// A certificate and the private key that belongs to it; P-256, and only in memory until `write` is asked for
/// the certificate.
///
/// Threads: any, one at a time.
class Certificates {
public:
    struct KeyDeleter {
        void operator()(evp_pkey_st* key) const;
    };
    struct CertificateDeleter {
        void operator()(x509_st* certificate) const;
    };

    struct Identity {
        std::unique_ptr<evp_pkey_st, KeyDeleter> key;
        std::unique_ptr<x509_st, CertificateDeleter> certificate;
    };

    struct Validity {
        /// Both counted from now, negative for the past.
        std::chrono::seconds from;
        std::chrono::seconds until;
    };

    struct ServerName {
        std::string commonName;
        /// As OpenSSL's configuration writes them: "DNS:localhost,IP:127.0.0.1".
        std::string alternativeNames;
    };

    /// All three throw `std::runtime_error`.
    static Identity makeAuthority(const std::string& commonName, Validity validity);
    /// Without an authority the certificate signs itself.
    static Identity makeServer(const ServerName& name, Validity validity, const Identity* authority);
    /// The certificate alone, as PEM; the key stays in memory.
    static void write(const Identity& identity, const std::filesystem::path& file);
};
