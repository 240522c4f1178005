#include "Platform/Push/WebPush.h"

#include "Platform/Encoding.h"

#include <boost/json.hpp>
#include <fmt/format.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <utility>

namespace Platform::Push {

namespace {

constexpr std::size_t saltBytes = 16;
constexpr std::size_t tagBytes = 16;
/// Salt, record size and the length of the key identifier.
constexpr std::size_t fixedHeaderBytes = saltBytes + 4 + 1;
constexpr std::size_t headerBytes = fixedHeaderBytes + WebPushKeys::publicKeyBytes;
/// The tag, the padding delimiter and one byte of content: the minimum of RFC 8188, section 2.
constexpr std::uint32_t smallestRecordSize = tagBytes + 2;
constexpr unsigned char uncompressedPoint = 4;
constexpr char lastRecordDelimiter = 2;

template <auto release>
struct Releaser {
    template <typename Object>
    void operator()(Object* object) const
    {
        release(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Releaser<EVP_PKEY_CTX_free>>;
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, Releaser<EVP_CIPHER_CTX_free>>;

/// Bytes that are cleared on destruction.
template <std::size_t count>
struct Secret {
    Secret() = default;
    ~Secret() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    [[nodiscard]] std::string_view view() const
    {
        return {reinterpret_cast<const char*>(bytes.data()), count};
    }

    std::array<unsigned char, count> bytes{};
};

const unsigned char* octets(std::string_view bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

unsigned char* octets(Data& bytes)
{
    return reinterpret_cast<unsigned char*>(bytes.data());
}

std::string_view view(const Data& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void require(bool isDone, const char* message)
{
    if (isDone)
        return;
    // Keep our error out of the thread's error queue, where other users of the library would find it.
    ERR_clear_error();
    throw WebPushError(message);
}

/// Returns the key for a private-key scalar; null if it is invalid.
Key keyFromScalar(std::string_view scalar)
{
    // The structure of RFC 5915 without the optional public key, which the library computes.
    constexpr std::string_view head("\x30\x31\x02\x01\x01\x04\x20", 7);
    constexpr std::string_view curve("\xa0\x0a\x06\x08\x2a\x86\x48\xce\x3d\x03\x01\x07", 12);
    Secret<head.size() + WebPushKeys::privateKeyBytes + curve.size()> document;
    auto end = std::copy(head.begin(), head.end(), document.bytes.begin());
    end = std::copy(scalar.begin(), scalar.end(), end);
    std::copy(curve.begin(), curve.end(), end);

    const unsigned char* bytes = document.bytes.data();
    Key key(d2i_PrivateKey(EVP_PKEY_EC, nullptr, &bytes, static_cast<long>(document.bytes.size())));
    const KeyContext context(key ? EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr) : nullptr);
    if (context && EVP_PKEY_private_check(context.get()) == 1)
        return key;
    ERR_clear_error();
    return nullptr;
}

Data encodedPoint(const Key& key)
{
    Data point(WebPushKeys::publicKeyBytes);
    std::size_t size = 0;
    require(EVP_PKEY_get_octet_string_param(key.get(), OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, octets(point),
                                            point.size(), &size) == 1 &&
                size == point.size(),
            "The device's public key cannot be computed.");
    return point;
}

/// Returns the sender's key for an encoded point on the curve of `own`.
Key keyFromPoint(std::string_view point, const Key& own)
{
    Key key(EVP_PKEY_new());
    require(key && EVP_PKEY_copy_parameters(key.get(), own.get()) == 1,
            "Out of memory for the sender's key.");
    require(EVP_PKEY_set1_encoded_public_key(key.get(), octets(point), point.size()) == 1,
            "The sender's key is not a point on the curve.");
    return key;
}

/// Computes the ECDH shared secret.
template <std::size_t count>
void deriveSharedSecret(const Key& own, const Key& peer, Secret<count>& secret)
{
    const KeyContext context(EVP_PKEY_CTX_new_from_pkey(nullptr, own.get(), nullptr));
    std::size_t size = count;
    require(context && EVP_PKEY_derive_init(context.get()) == 1 &&
                EVP_PKEY_derive_set_peer(context.get(), peer.get()) == 1 &&
                EVP_PKEY_derive(context.get(), secret.bytes.data(), &size) == 1 && size == count,
            "The shared secret cannot be derived from the sender's key.");
}

/// HKDF with SHA-256 (RFC 5869), both steps.
template <std::size_t count>
void derive(std::string_view salt, std::string_view material, std::string_view info, Secret<count>& out)
{
    const KeyContext context(EVP_PKEY_CTX_new_id(EVP_PKEY_HKDF, nullptr));
    std::size_t size = count;
    require(
        context && EVP_PKEY_derive_init(context.get()) == 1 &&
            EVP_PKEY_CTX_set_hkdf_md(context.get(), EVP_sha256()) == 1 &&
            EVP_PKEY_CTX_set1_hkdf_salt(context.get(), octets(salt), static_cast<int>(salt.size())) == 1 &&
            EVP_PKEY_CTX_set1_hkdf_key(context.get(), octets(material), static_cast<int>(material.size())) ==
                1 &&
            EVP_PKEY_CTX_add1_hkdf_info(context.get(), octets(info), static_cast<int>(info.size())) == 1 &&
            EVP_PKEY_derive(context.get(), out.bytes.data(), &size) == 1 && size == count,
        "The message keys cannot be derived.");
}

struct Message {
    std::string_view salt;
    std::string_view senderKey;
    std::string_view ciphertext;
    std::string_view tag;
};

std::uint32_t readRecordSize(std::string_view message)
{
    std::uint32_t size = 0;
    for (const char byte : message.substr(saltBytes, 4))
        size = size << 8U | static_cast<unsigned char>(byte);
    return size;
}

Message parse(std::string_view message)
{
    if (message.size() > WebPushKeys::maximumMessageBytes)
        throw WebPushError(
            fmt::format("The message is longer than {} bytes.", WebPushKeys::maximumMessageBytes));
    if (message.size() < fixedHeaderBytes)
        throw WebPushError("The message is shorter than its header.");
    const std::uint32_t recordSize = readRecordSize(message);
    if (recordSize < smallestRecordSize)
        throw WebPushError(
            fmt::format("The record size is {}; the minimum is {}.", recordSize, smallestRecordSize));
    const auto keySize = static_cast<unsigned char>(message[fixedHeaderBytes - 1]);
    if (keySize != WebPushKeys::publicKeyBytes)
        throw WebPushError(fmt::format("The key identifier has {} bytes; a sender's key has {}.", keySize,
                                       WebPushKeys::publicKeyBytes));
    if (message.size() <= headerBytes + tagBytes)
        throw WebPushError("The message is shorter than its header and an empty record.");
    const std::string_view record = message.substr(headerBytes);
    if (record.size() > recordSize)
        throw WebPushError("The message has more than one record.");
    const std::string_view senderKey = message.substr(fixedHeaderBytes, keySize);
    if (*octets(senderKey) != uncompressedPoint)
        throw WebPushError("The sender's key is not an uncompressed point.");
    return {.salt = message.substr(0, saltBytes),
            .senderKey = senderKey,
            .ciphertext = record.substr(0, record.size() - tagBytes),
            .tag = record.substr(record.size() - tagBytes)};
}

std::string open(const Message& message, const Secret<16>& key, const Secret<12>& nonce)
{
    constexpr const char* failure = "The cipher of the message is not available.";
    const CipherContext context(EVP_CIPHER_CTX_new());
    std::string plaintext(message.ciphertext.size(), '\0');
    auto* const out = reinterpret_cast<unsigned char*>(plaintext.data());
    // The library only reads the tag.
    auto* const tag = const_cast<char*>(message.tag.data());
    int size = 0;
    require(context && EVP_DecryptInit_ex(context.get(), EVP_aes_128_gcm(), nullptr, key.bytes.data(),
                                          nonce.bytes.data()) == 1,
            failure);
    require(EVP_DecryptUpdate(context.get(), out, &size, octets(message.ciphertext),
                              static_cast<int>(message.ciphertext.size())) == 1 &&
                EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, tagBytes, tag) == 1,
            failure);
    require(EVP_DecryptFinal_ex(context.get(), out + size, &size) == 1,
            "The tag does not match: the message was altered, or encrypted for other keys.");
    return plaintext;
}

/// Removes the padding delimiter and the zeros after it.
void removePadding(std::string& record)
{
    const auto delimiter = record.find_last_not_of('\0');
    if (delimiter == std::string::npos)
        throw WebPushError("The record has no padding delimiter.");
    if (record[delimiter] != lastRecordDelimiter)
        throw WebPushError("The padding delimiter does not mark the last record.");
    record.resize(delimiter);
}

} // namespace

WebPushKeys::WebPushKeys(Data privateKey, Data publicKey, Data authSecret)
    : m_privateKey(std::move(privateKey)),
      m_publicKey(std::move(publicKey)),
      m_authSecret(std::move(authSecret))
{}

WebPushKeys WebPushKeys::generate()
{
    constexpr const char* failure = "The system cannot provide random bytes for new keys.";
    Data authSecret(authSecretBytes);
    require(RAND_priv_bytes(octets(authSecret), static_cast<int>(authSecret.size())) == 1, failure);
    const Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    BIGNUM* number = nullptr;
    require(key && EVP_PKEY_get_bn_param(key.get(), OSSL_PKEY_PARAM_PRIV_KEY, &number) == 1, failure);
    const std::unique_ptr<BIGNUM, Releaser<BN_clear_free>> ownedNumber(number);
    Data privateKey(privateKeyBytes);
    require(BN_bn2binpad(number, octets(privateKey), static_cast<int>(privateKey.size())) ==
                static_cast<int>(privateKey.size()),
            failure);
    return {std::move(privateKey), encodedPoint(key), std::move(authSecret)};
}

std::optional<WebPushKeys> WebPushKeys::fromStored(const Data& privateKey, const Data& authSecret)
{
    if (privateKey.size() != privateKeyBytes || authSecret.size() != authSecretBytes)
        return std::nullopt;
    const Key key = keyFromScalar(view(privateKey));
    if (!key)
        return std::nullopt;
    return WebPushKeys(privateKey, encodedPoint(key), authSecret);
}

std::string WebPushKeys::decrypt(std::string_view message) const
{
    const Message parts = parse(message);
    const Key own = keyFromScalar(view(m_privateKey));
    require(own != nullptr, "Out of memory for the device's key.");
    Secret<32> sharedSecret;
    deriveSharedSecret(own, keyFromPoint(parts.senderKey, own), sharedSecret);

    using namespace std::string_view_literals;
    const std::string bothKeys =
        fmt::format("{}{}{}", "WebPush: info\0"sv, view(m_publicKey), parts.senderKey);
    Secret<32> material;
    derive(view(m_authSecret), sharedSecret.view(), bothKeys, material);
    Secret<16> key;
    derive(parts.salt, material.view(), "Content-Encoding: aes128gcm\0"sv, key);
    Secret<12> nonce;
    derive(parts.salt, material.view(), "Content-Encoding: nonce\0"sv, nonce);

    std::string plaintext = open(parts, key, nonce);
    removePadding(plaintext);
    return plaintext;
}

std::string webPushSubscription(std::string_view endpoint, const WebPushKeys& keys)
{
    const boost::json::object subscription{
        {"endpoint", endpoint},
        {"keys",
         {{"p256dh", base64Text(keys.publicKey(), Base64Form::url)},
          {"auth", base64Text(keys.authSecret(), Base64Form::url)}}},
    };
    return boost::json::serialize(subscription);
}

} // namespace Platform::Push
