// Fuzzes the decryption of pushes. An input is used both as a message and as a plan for one: its padding, an
// alteration, and its text.

#include "Fuzzers/Fuzzing.h"
#include "Platform/Encoding.h"
#include "Platform/Push/WebPush.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <algorithm>
#include <optional>
#include <string>

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

struct Plan {
    static constexpr std::size_t headBytes = 6;

    explicit Plan(std::string_view input)
        : paddingCount(number(input[0])),
          hasTightRecord(number(input[1]) % 2 == 1),
          edit(number(input[1]) / 2 % 3),
          place(number(input[2]) << 8U | number(input[3])),
          value(input[4]),
          salt(16, input[5]),
          text(input.substr(headBytes))
    {}

    static std::size_t number(char byte) { return static_cast<unsigned char>(byte); }

    std::size_t paddingCount;
    bool hasTightRecord;
    std::size_t edit;
    std::size_t place;
    char value;
    std::string salt;
    std::string text;
};

std::string altered(std::string message, const Plan& plan)
{
    const std::size_t place = plan.place % message.size();
    switch (plan.edit) {
    case 0:
        message[place] = static_cast<char>(message[place] ^ (plan.value == 0 ? 1 : plan.value));
        break;
    case 1:
        message.erase(place, plan.value == 0 ? std::string::npos : Plan::number(plan.value));
        break;
    default:
        message.insert(plan.place % (message.size() + 1), Plan::number(plan.value) + 1, plan.value);
    }
    return message;
}

/// Returns whether only the record size differs. That change may go undetected: any size that is large enough
/// is valid.
bool differsOnlyInRecordSize(const std::string& message, const std::string& alteredMessage)
{
    return message.size() == alteredMessage.size() && message.substr(0, 16) == alteredMessage.substr(0, 16) &&
           message.substr(20) == alteredMessage.substr(20);
}

void examinePlan(const Plan& plan)
{
    static const auto subscription = WebPushSubscription::parse(
        Platform::Push::webPushSubscription("https://push.acme.example/", deviceKeys()));
    const std::string padding = "\2" + std::string(plan.paddingCount, '\0');
    const std::size_t recordSize = plan.text.size() + padding.size() + tagSize;
    if (headerSize + recordSize > WebPushKeys::maximumMessageBytes)
        return;
    const std::size_t leastRecordSize = std::max<std::size_t>(recordSize, 18);
    const std::string message = encryptWebPush(
        subscription, plan.text,
        {.salt = plan.salt,
         .senderPrivateKey = std::string(32, '\3'),
         .recordSize = static_cast<std::uint32_t>(plan.hasTightRecord ? leastRecordSize : 4096),
         .padding = padding});
    require(decrypted(message) == plan.text, "a message decrypts to its text");

    const std::string alteredMessage = altered(message, plan);
    const auto text = decrypted(alteredMessage);
    require(!text || (differsOnlyInRecordSize(message, alteredMessage) && *text == plan.text),
            "an altered message is rejected");
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
    if (input.size() >= Plan::headBytes)
        examinePlan(Plan(input));
}
