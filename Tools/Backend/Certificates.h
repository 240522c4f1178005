#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

struct evp_pkey_st;
struct x509_st;

/// Certificates with P-256 keys, made in memory. All functions throw `std::runtime_error`.
///
/// Threads: any.
namespace Certificates {

/// A certificate and its private key.
struct Identity {
    std::unique_ptr<evp_pkey_st, void (*)(evp_pkey_st*)> key;
    std::unique_ptr<x509_st, void (*)(x509_st*)> certificate;
};

/// Both counted from now; negative for the past.
struct Validity {
    std::chrono::seconds from;
    std::chrono::seconds until;
};

struct ServerName {
    std::string commonName;
    /// In the syntax of OpenSSL's configuration: "DNS:localhost,IP:127.0.0.1".
    std::string alternativeNames;
};

Identity makeAuthority(const std::string& commonName, Validity validity);
/// Self-signed without an authority.
Identity makeServer(const ServerName& name, Validity validity, const Identity* authority);
/// Writes the certificate as PEM, without the key.
void write(const Identity& identity, const std::filesystem::path& file);

} // namespace Certificates
