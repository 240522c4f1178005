#include "Tools/Backend/Certificates.h"

#include "Tools/Backend/OpenSSLRequirement.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <fstream>
#include <stdexcept>

namespace {

constexpr int serialByteCount = 16;

/// A random one: clients that keep certificates take two of one issuer and serial number for the same.
void setSerialNumber(X509* certificate)
{
    std::array<unsigned char, serialByteCount> bytes{};
    require(RAND_bytes(bytes.data(), serialByteCount) == 1, "no random serial number");
    // Positive, and never shortened by leading zeros.
    bytes[0] = static_cast<unsigned char>((bytes[0] & 0x3F) | 0x40);
    const std::unique_ptr<BIGNUM, decltype(&BN_free)> number(
        BN_bin2bn(bytes.data(), serialByteCount, nullptr), &BN_free);
    require(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
            "serial number not set");
}

void setSubject(X509* certificate, const std::string& commonName)
{
    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>(commonName.data());
    require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, static_cast<int>(commonName.size()),
                                       -1, 0) == 1,
            "subject not set");
}

void setValidity(X509* certificate, Certificates::Validity validity)
{
    require(X509_gmtime_adj(X509_getm_notBefore(certificate), validity.from.count()) != nullptr &&
                X509_gmtime_adj(X509_getm_notAfter(certificate), validity.until.count()) != nullptr,
            "validity not set");
}

void addExtension(X509* certificate, X509* issuer, int identifier, const std::string& value)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, identifier, value.c_str()), &X509_EXTENSION_free);
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "extension not added");
}

/// With a key and all that does not depend on who signs.
Certificates::Identity makeUnsigned(const std::string& commonName, Certificates::Validity validity)
{
    Certificates::Identity identity;
    identity.key.reset(EVP_EC_gen("P-256"));
    identity.certificate.reset(X509_new());
    X509* certificate = identity.certificate.get();
    require(identity.key && certificate != nullptr, "no key or certificate");
    require(X509_set_version(certificate, X509_VERSION_3) == 1 &&
                X509_set_pubkey(certificate, identity.key.get()) == 1,
            "certificate not filled");
    setSerialNumber(certificate);
    setSubject(certificate, commonName);
    setValidity(certificate, validity);
    return identity;
}

/// Names the issuer, which the key identifiers need, and the keys.
void setIssuer(X509* certificate, X509* issuer)
{
    require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1, "issuer not set");
    addExtension(certificate, issuer, NID_subject_key_identifier, "hash");
    addExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
}

void sign(X509* certificate, EVP_PKEY* key)
{
    require(X509_sign(certificate, key, EVP_sha256()) != 0, "certificate not signed");
}

} // namespace

void Certificates::KeyDeleter::operator()(evp_pkey_st* key) const
{
    EVP_PKEY_free(key);
}

void Certificates::CertificateDeleter::operator()(x509_st* certificate) const
{
    X509_free(certificate);
}

Certificates::Identity Certificates::makeAuthority(const std::string& commonName, Validity validity)
{
    Identity authority = makeUnsigned(commonName, validity);
    X509* certificate = authority.certificate.get();
    setIssuer(certificate, certificate);
    addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    sign(certificate, authority.key.get());
    return authority;
}

Certificates::Identity Certificates::makeServer(const ServerName& name, Validity validity,
                                                const Identity* authority)
{
    Identity server = makeUnsigned(name.commonName, validity);
    const Identity& signer = authority != nullptr ? *authority : server;
    X509* certificate = server.certificate.get();
    X509* issuer = signer.certificate.get();
    setIssuer(certificate, issuer);
    addExtension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, issuer, NID_key_usage, "critical,digitalSignature");
    addExtension(certificate, issuer, NID_ext_key_usage, "serverAuth");
    addExtension(certificate, issuer, NID_subject_alt_name, name.alternativeNames);
    sign(certificate, signer.key.get());
    return server;
}

void Certificates::write(const Identity& identity, const std::filesystem::path& file)
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), &BIO_free);
    require(memory && PEM_write_bio_X509(memory.get(), identity.certificate.get()) == 1,
            "certificate not encoded");
    const char* text = nullptr;
    const auto size = BIO_get_mem_data(memory.get(), &text);
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(text, size);
    stream.close();
    if (!stream)
        throw std::runtime_error("cannot write " + file.string());
}
