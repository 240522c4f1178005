#include "Tools/Backend/WebPushEncryption.h"

#include "Platform/Encoding.h"
#include "Tools/Backend/OpenSSLRequirement.h"

#include <boost/json.hpp>
#include <fmt/format.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <memory>
#include <stdexcept>

namespace {

using namespace std::string_literals;

constexpr std::size_t publicKeySize = 65;
constexpr std::size_t privateKeySize = 32;
constexpr std::size_t secretSize = 16;
constexpr std::size_t tagSize = 16;
constexpr std::size_t largestMessage = 4096;

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

void requireSize(std::string_view bytes, std::size_t size, const char* what)
{
    if (bytes.size() != size)
        throw std::runtime_error(fmt::format("{} has {} bytes instead of {}", what, bytes.size(), size));
}

const unsigned char* octets(std::string_view bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

unsigned char* octets(std::string& bytes)
{
    return reinterpret_cast<unsigned char*>(bytes.data());
}

std::string randomBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    require(RAND_bytes(octets(bytes), static_cast<int>(count)) == 1, "no random bytes");
    return bytes;
}

/// The key with that private number; a new one if `number` is empty.
Key senderKey(const std::string& number)
{
    if (!number.empty())
        requireSize(number, privateKeySize, "the sender's private key");
    // RFC 5915: version 1, the number, the object identifier of the curve; the library computes the public
    // key.
    const std::string document =
        "\x30\x31\x02\x01\x01\x04\x20" + number + "\xA0\x0A\x06\x08\x2A\x86\x48\xCE\x3D\x03\x01\x07";
    const unsigned char* bytes = octets(std::string_view(document));
    Key key(number.empty() ? EVP_EC_gen("P-256")
                           : d2i_PrivateKey(EVP_PKEY_EC, nullptr, &bytes, static_cast<long>(document.size())),
            &EVP_PKEY_free);
    require(key != nullptr, "the sender's private key is not on the curve");
    return key;
}

std::string pointOf(const Key& key)
{
    std::string point(publicKeySize, '\0');
    std::size_t size = 0;
    require(EVP_PKEY_get_octet_string_param(key.get(), OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, octets(point),
                                            point.size(), &size) == 1,
            "the sender's public key cannot be computed");
    return point;
}

/// The key with that public point, on the curve of `own`.
Key keyFromPoint(const std::string& point, const Key& own)
{
    Key key(EVP_PKEY_new(), &EVP_PKEY_free);
    require(key && EVP_PKEY_copy_parameters(key.get(), own.get()) == 1 &&
                EVP_PKEY_set1_encoded_public_key(key.get(), octets(point), point.size()) == 1,
            "the subscription's public key is not on the curve");
    return key;
}

std::string agree(const Key& own, const Key& peer)
{
    const KeyContext context(EVP_PKEY_CTX_new(own.get(), nullptr), &EVP_PKEY_CTX_free);
    std::string secret(privateKeySize, '\0');
    std::size_t size = secret.size();
    require(context && EVP_PKEY_derive_init(context.get()) == 1 &&
                EVP_PKEY_derive_set_peer(context.get(), peer.get()) == 1 &&
                EVP_PKEY_derive(context.get(), octets(secret), &size) == 1,
            "the two keys do not agree on a secret");
    return secret;
}

std::string hmac(std::string_view key, std::string_view bytes)
{
    std::string code(EVP_MAX_MD_SIZE, '\0');
    unsigned size = 0;
    require(HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), octets(bytes), bytes.size(),
                 octets(code), &size) != nullptr,
            "no authentication code");
    code.resize(size);
    return code;
}

/// The ciphertext with its tag.
std::string seal(const std::string& record, const std::string& key, const std::string& nonce)
{
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                                  &EVP_CIPHER_CTX_free);
    std::string sealed(record.size() + tagSize, '\0');
    unsigned char* const tag = octets(sealed) + record.size();
    int size = 0;
    require(context &&
                EVP_EncryptInit_ex(context.get(), EVP_aes_128_gcm(), nullptr, octets(key), octets(nonce)) ==
                    1 &&
                EVP_EncryptUpdate(context.get(), octets(sealed), &size, octets(record),
                                  static_cast<int>(record.size())) == 1 &&
                EVP_EncryptFinal_ex(context.get(), tag, &size) == 1 &&
                EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, tagSize, tag) == 1,
            "the record cannot be encrypted");
    return sealed;
}

std::string text(const boost::json::object& object, const char* key)
{
    const auto* value = object.if_contains(key);
    if (value == nullptr || !value->is_string())
        throw std::runtime_error(fmt::format("the subscription has no text \"{}\"", key));
    return std::string(value->get_string());
}

std::string decodedBytes(const boost::json::object& keys, const char* key, std::size_t size)
{
    const auto bytes = Platform::decodeBase64URL(text(keys, key));
    if (!bytes)
        throw std::runtime_error(fmt::format("\"{}\" of the subscription is not base64 for URLs", key));
    std::string decoded(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    requireSize(decoded, size, key);
    return decoded;
}

} // namespace

WebPushSubscription WebPushSubscription::parse(std::string_view json)
{
    boost::json::error_code error;
    const boost::json::value root = boost::json::parse(json, error);
    const auto* object = root.if_object();
    if (error || object == nullptr)
        throw std::runtime_error("the subscription is not a JSON object");
    const auto* keys = object->if_contains("keys");
    if (keys == nullptr || !keys->is_object())
        throw std::runtime_error("the subscription has no object \"keys\"");
    return {.endpoint = text(*object, "endpoint"),
            .publicKey = decodedBytes(keys->get_object(), "p256dh", publicKeySize),
            .authSecret = decodedBytes(keys->get_object(), "auth", secretSize)};
}

std::string encryptWebPush(const WebPushSubscription& subscription, std::string_view text,
                           const WebPushForm& form)
{
    requireSize(subscription.publicKey, publicKeySize, "the subscription's public key");
    requireSize(subscription.authSecret, secretSize, "the subscription's secret");
    const std::string salt = form.salt.empty() ? randomBytes(secretSize) : form.salt;
    requireSize(salt, secretSize, "the salt");

    const Key key = senderKey(form.senderPrivateKey);
    const std::string point = pointOf(key);
    const std::string agreed = agree(key, keyFromPoint(subscription.publicKey, key));
    const std::string material = hmac(hmac(subscription.authSecret, agreed),
                                      "WebPush: info\0"s + subscription.publicKey + point + '\1');
    const std::string root = hmac(salt, material);
    const std::string contentKey = hmac(root, "Content-Encoding: aes128gcm\0\1"s).substr(0, 16);
    const std::string nonce = hmac(root, "Content-Encoding: nonce\0\1"s).substr(0, 12);

    std::string message = salt;
    for (const unsigned shift : {24U, 16U, 8U, 0U})
        message += static_cast<char>(form.recordSize >> shift & 0xFFU);
    message += static_cast<char>(point.size());
    message += point;
    message += seal(std::string(text) + form.padding, contentKey, nonce);
    if (message.size() > largestMessage)
        throw std::runtime_error(
            fmt::format("the push has {} bytes; a push service takes {} at most, {} of them text",
                        message.size(), largestMessage, largestWebPushText));
    return message;
}
