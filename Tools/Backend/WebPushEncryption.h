#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Where a device receives pushes, and the keys to encrypt them with.
struct WebPushSubscription {
    std::string endpoint;
    /// The uncompressed point on the curve P-256: 65 bytes.
    std::string publicKey;
    /// 16 bytes.
    std::string authSecret;

    /// Parses the JSON form that browsers use. Throws `std::runtime_error` with the reason.
    static WebPushSubscription parse(std::string_view json);
};

/// The parts of a message other than its text. Every receiver accepts the default; tests set the rest for
/// known results, or for messages to be refused.
struct WebPushForm {
    /// 16 bytes; empty for random ones.
    std::string salt = {};
    /// 32 bytes; empty for a new key.
    std::string senderPrivateKey = {};
    std::uint32_t recordSize = 4096;
    /// What follows the text in the record: the delimiter of the last record, 2, and any zeros.
    std::string padding = "\x02";
};

/// The longest text that fits into a message of 4096 bytes, which every push service accepts.
inline constexpr std::size_t largestWebPushText = 3993;

/// Returns the body of a push in a single record (RFC 8291, content coding aes128gcm). Throws
/// `std::runtime_error` if `text` and padding are too long, or the keys are invalid.
std::string encryptWebPush(const WebPushSubscription& subscription, std::string_view text,
                           const WebPushForm& form = {});
