// Fuzzes the decryption of pushes. An input is used both as a message and as the text of one.

#include "Fuzzers/Fuzzing.h"
#include "Platform/Encoding.h"
#include "Platform/Push/WebPush.h"
#include "Tools/Backend/WebPushEncryption.h"

using Fuzzers::require;
using Platform::Push::WebPushError, Platform::Push::WebPushKeys;

namespace {

constexpr std::size_t headerSize = 16 + 4 + 1 + 65;
constexpr std::size_t tagSize = 16;

const WebPushKeys& deviceKeys()
{
    static const WebPushKeys keys =
        WebPushKeys::fromStored(Platform::Data(32, std::byte{7}), Platform::Data(16, std::byte{9})).value();
    return keys;
}

std::optional<std::string> decrypted(std::string_view message)
{
    return Fuzzers::accepted<WebPushError>([&] { return deviceKeys().decrypt(message); });
}

/// Encrypts `text`. The message must decrypt to it, but not after a change.
void examineText(const std::string& text)
{
    static const auto subscription = WebPushSubscription::parse(
        Platform::Push::webPushSubscription("https://push.acme.example/", deviceKeys()));
    const std::size_t number = std::hash<std::string>()(text);
    const std::string padding = "\2" + std::string(number % 256, '\0');
    if (headerSize + text.size() + padding.size() + tagSize > WebPushKeys::maximumMessageBytes)
        return;
    std::string message = encryptWebPush(subscription, text,
                                         {.salt = std::string(16, static_cast<char>(number)),
                                          .senderPrivateKey = std::string(32, '\3'),
                                          .padding = padding});
    require(decrypted(message) == text, "a message decrypts to its text");

    const std::size_t place = number % message.size();
    message[place] = static_cast<char>(message[place] ^ 1);
    // Any record size that is large enough is valid.
    const bool isRecordSize = place >= 16 && place < 20;
    require(isRecordSize || !decrypted(message), "an altered message is rejected");
}

void examineBase64(std::string_view text)
{
    if (const auto bytes = Platform::decodeBase64URL(text))
        require(Platform::base64Text(*bytes, Platform::Base64Form::url) == text,
                "bytes have only one base64 encoding");
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    if (const auto text = decrypted(input))
        require(text->size() + headerSize + tagSize < input.size(),
                "decrypted text is shorter than its message");
    examineBase64(input);
    examineText(std::string(input));
}
