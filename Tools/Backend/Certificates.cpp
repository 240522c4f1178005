#include "Tools/Backend/Certificates.h"

#include "Tools/Backend/OpenSSLRequirement.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Certificates {

namespace {

/// Identifiers and values in the syntax of OpenSSL's configuration.
using Extensions = std::vector<std::pair<int, std::string>>;

void addExtension(X509* certificate, X509* issuer, int identifier, const std::string& value)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, identifier, value.c_str()), &X509_EXTENSION_free);
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "extension not added");
}

/// Self-signed without a signer.
Identity makeSigned(const std::string& commonName, Validity validity, const Identity* signer,
                    const Extensions& extensions)
{
    Identity identity{{EVP_EC_gen("P-256"), &EVP_PKEY_free}, {X509_new(), &X509_free}};
    if (signer == nullptr)
        signer = &identity;
    X509* certificate = identity.certificate.get();
    X509* issuer = signer->certificate.get();
    require(identity.key && certificate != nullptr, "no key or certificate");
    X509_NAME* subject = X509_get_subject_name(certificate);
    // Random: some clients mistake certificates of one issuer with the same serial number for each other.
    std::uint64_t serial = 0;
    require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1 &&
                ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial) == 1 &&
                X509_set_version(certificate, X509_VERSION_3) == 1 &&
                X509_set_pubkey(certificate, identity.key.get()) == 1 &&
                X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                           reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1,
                                           0) == 1 &&
                X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1 &&
                X509_gmtime_adj(X509_getm_notBefore(certificate), validity.from.count()) != nullptr &&
                X509_gmtime_adj(X509_getm_notAfter(certificate), validity.until.count()) != nullptr,
            "certificate not filled in");
    addExtension(certificate, issuer, NID_subject_key_identifier, "hash");
    addExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
    for (const auto& [identifier, value] : extensions)
        addExtension(certificate, issuer, identifier, value);
    require(X509_sign(certificate, signer->key.get(), EVP_sha256()) != 0, "certificate not signed");
    return identity;
}

} // namespace

Identity makeAuthority(const std::string& commonName, Validity validity)
{
    return makeSigned(commonName, validity, nullptr,
                      {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
                       {NID_key_usage, "critical,keyCertSign,cRLSign"}});
}

Identity makeServer(const ServerName& name, Validity validity, const Identity* authority)
{
    return makeSigned(name.commonName, validity, authority,
                      {{NID_basic_constraints, "critical,CA:FALSE"},
                       {NID_key_usage, "critical,digitalSignature"},
                       {NID_ext_key_usage, "serverAuth"},
                       {NID_subject_alt_name, name.alternativeNames}});
}

void write(const Identity& identity, const std::filesystem::path& file)
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> stream(BIO_new_file(file.c_str(), "w"), &BIO_free);
    if (!stream || PEM_write_bio_X509(stream.get(), identity.certificate.get()) != 1 ||
        BIO_flush(stream.get()) != 1)
        throw std::runtime_error("cannot write " + file.string());
}

} // namespace Certificates
