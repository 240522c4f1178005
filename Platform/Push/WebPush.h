#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Platform::Push {

/// Why a message cannot be decrypted. The description is a sentence without any of the content.
class WebPushError : public ErrorException {
public:
    using ErrorException::ErrorException;
};

/// What a device receives encrypted pushes with: a key pair on the curve P-256 and a secret shared with those
/// who may send. Keep both `privateKey()` and `authSecret()` to receive on the same subscription later.
///
/// Threads: any, concurrently. Source: RFC 8291, and RFC 8188 for the form of a message.
class WebPushKeys {
public:
    static constexpr std::size_t privateKeyBytes = 32;
    static constexpr std::size_t publicKeyBytes = 65;
    static constexpr std::size_t authSecretBytes = 16;
    /// The largest message that every push service takes, and the largest that is decrypted here.
    static constexpr std::size_t maximumMessageBytes = 4096;

    /// Fresh ones. Throws `WebPushError` when the system has no random bytes.
    static WebPushKeys generate();
    /// Absent when the sizes are wrong or `privateKey` is no number from 1 to the order of the curve less 1.
    static std::optional<WebPushKeys> fromStored(const Data& privateKey, const Data& authSecret);

    /// The number alone, most significant byte first.
    [[nodiscard]] const Data& privateKey() const { return m_privateKey; }
    [[nodiscard]] const Data& authSecret() const { return m_authSecret; }
    /// The point, uncompressed.
    [[nodiscard]] const Data& publicKey() const { return m_publicKey; }

    /// What the sender encrypted: `message`, the body of a push with the content coding aes128gcm, without
    /// its padding. Throws `WebPushError`; the whole message is authentic or nothing of it is answered.
    [[nodiscard]] std::string decrypt(std::string_view message) const;

private:
    WebPushKeys(Data privateKey, Data publicKey, Data authSecret);

    Data m_privateKey;
    Data m_publicKey;
    Data m_authSecret;
};

/// The subscription to hand to senders, in the JSON form that browsers give it: `endpoint`, and under `keys`
/// the public key as `p256dh` and the secret as `auth`. `endpoint` is valid UTF-8.
std::string webPushSubscription(std::string_view endpoint, const WebPushKeys& keys);

} // namespace Platform::Push
