#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Platform::Push {

/// The error of a message that cannot be decrypted. The description is a sentence that never quotes the
/// content.
class WebPushError : public ErrorException {
public:
    using ErrorException::ErrorException;
};

/// The keys for receiving encrypted pushes: a P-256 key pair and the authentication secret, which is shared
/// with senders. Store `privateKey()` and `authSecret()` to keep a subscription.
///
/// Threads: any, concurrently. Source: RFC 8291, and RFC 8188 for the message format.
class WebPushKeys {
public:
    static constexpr std::size_t privateKeyBytes = 32;
    static constexpr std::size_t publicKeyBytes = 65;
    static constexpr std::size_t authSecretBytes = 16;
    /// The maximum message size. All push services support it (RFC 8030, section 7.2).
    static constexpr std::size_t maximumMessageBytes = 4096;

    /// Generates keys. Throws `WebPushError` if the system cannot provide random bytes.
    static WebPushKeys generate();
    /// Returns the keys for stored values. Absent if a size is wrong or `privateKey` is not a valid scalar.
    static std::optional<WebPushKeys> fromStored(const Data& privateKey, const Data& authSecret);

    /// The private scalar, big-endian.
    [[nodiscard]] const Data& privateKey() const { return m_privateKey; }
    [[nodiscard]] const Data& authSecret() const { return m_authSecret; }
    /// The public point, uncompressed.
    [[nodiscard]] const Data& publicKey() const { return m_publicKey; }

    /// Decrypts `message`, the body of a push with content coding aes128gcm, and returns the content without
    /// padding. Throws `WebPushError` if any part of the message is malformed or not authentic.
    [[nodiscard]] std::string decrypt(std::string_view message) const;

private:
    WebPushKeys(Data privateKey, Data publicKey, Data authSecret);

    Data m_privateKey;
    Data m_publicKey;
    Data m_authSecret;
};

/// Returns the subscription for senders, in the JSON format of the W3C Push API: `endpoint`, and `keys` with
/// the public key as `p256dh` and the authentication secret as `auth`. `endpoint` must be valid UTF-8.
std::string webPushSubscription(std::string_view endpoint, const WebPushKeys& keys);

} // namespace Platform::Push
