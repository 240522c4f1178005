#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Where a device receives pushes, and whom they are encrypted for.
struct WebPushSubscription {
    std::string endpoint;
    /// The point on the curve P-256, uncompressed: 65 bytes.
    std::string publicKey;
    /// 16 bytes.
    std::string authSecret;

    /// From the JSON form that browsers give a subscription. Throws `std::runtime_error` with the reason.
    static WebPushSubscription parse(std::string_view json);
};

/// What a message consists of beside its text. The default is one that every receiver takes; the rest is for
/// known answers and for messages that are to be refused.
struct WebPushForm {
    /// 16 bytes; empty: random.
    std::string salt = {};
    /// 32 bytes; empty: made for this message.
    std::string senderPrivateKey = {};
    std::uint32_t recordSize = 4096;
    /// What follows the text in the record: the delimiter of the last record, 2, and any zeros.
    std::string padding = "\x02";
};

/// The most that fits into a message which every push service takes.
inline constexpr std::size_t largestWebPushText = 3993;

/// The body of a push (RFC 8291, content coding aes128gcm), always of one record. Throws `std::runtime_error`
/// when `text` and padding are too large, or the keys are none.
std::string encryptWebPush(const WebPushSubscription& subscription, std::string_view text,
                           const WebPushForm& form = {});
