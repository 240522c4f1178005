#include "Platform/Push/WebPush.h"

#include "Platform/Encoding.h"
#include "Platform/Push/UnifiedPushRegistration.h"
#include "Tests/Fakes/Bytes.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <gmock/gmock.h>
#include <openssl/err.h>

using namespace Platform;
using namespace Platform::Push;
using namespace std::string_literals;
using testing::HasSubstr, testing::ThrowsMessage;

namespace {

std::string decoded(std::string_view base64)
{
    return textOf(decodeBase64URL(base64).value());
}

WebPushSubscription subscriptionOf(const WebPushKeys& keys)
{
    return WebPushSubscription::parse(webPushSubscription("https://push.example.com/", keys));
}

/// The example of RFC 8291, section 5.
class WebPushTest : public testing::Test {
protected:
    ~WebPushTest() override { EXPECT_EQ(ERR_peek_error(), 0U) << "other users of the library would find it"; }

    const WebPushKeys keys =
        WebPushKeys::fromStored(decodeBase64URL("q1dXpw3UpT5VOmu_cf_v6ih07Aems3njxI-JWgLcM94").value(),
                                decodeBase64URL("BTBZMqHH6r4Tts7J_aSIgg").value())
            .value();
    const WebPushSubscription subscription = subscriptionOf(keys);
    const WebPushForm form{.salt = decoded("DGv6ra1nlYgDCS1FRnbzlw"),
                           .senderPrivateKey = decoded("yfWPiYE-n46HLnH0KqZOF1fJJU3MYrct3AELtAQ-oRw")};
    const std::string message = decoded(
        "DGv6ra1nlYgDCS1FRnbzlwAAEABBBP4z9KsN6nGRTbVYI_c7VJSPQTBtkgcy27mlmlMoZIIgDll6e3vCYLocInmYWAmS6TlzAC8w"
        "EqKK6PBru3jl7A_yl95bQpu6cVPTpK4Mqgkf1CXztLVBSt2Ks3oZwbuwXPXLWyouBWLVWGNWQexSgSxsj_Qulcy4a-fN");
};

TEST_F(WebPushTest, MatchesTheExampleOfRFC8291)
{
    EXPECT_EQ(webPushSubscription("https://e/\"", keys),
              R"({"endpoint":"https://e/\"","keys":{"p256dh":"BCVxsr7N_eNgVRqvHtD0zTZsEc6-VV-JvLexhqUzORcxa)"
              R"(Ozi6-AYWXvTBHm4bjyPjs7Vd8pZGH6SRpkNtoIAiw4","auth":"BTBZMqHH6r4Tts7J_aSIgg"}})");
    EXPECT_EQ(keys.decrypt(message), "When I grow up, I want to be a watermelon");
    EXPECT_EQ(encryptWebPush(subscription, keys.decrypt(message), form), message);
}

TEST_F(WebPushTest, DecryptsMessagesOfAnySizeWithStoredKeys)
{
    const WebPushKeys made = WebPushKeys::generate();
    const WebPushKeys stored = WebPushKeys::fromStored(made.privateKey(), made.authSecret()).value();
    for (const std::string& each : {""s, "\2"s, "a\2\0\0"s, std::string(largestWebPushText, 'x')})
        EXPECT_EQ(stored.decrypt(encryptWebPush(subscriptionOf(made), each)), each);
    EXPECT_NE(encryptWebPush(subscription, "").substr(0, 16), encryptWebPush(subscription, "").substr(0, 16));
    EXPECT_EQ(keys.decrypt(encryptWebPush(subscription, "a", {.recordSize = 20, .padding = "\2\0\0"s})), "a");
    for (const std::byte each : {std::byte{0}, std::byte{255}}) // Below and above the valid range.
        EXPECT_FALSE(WebPushKeys::fromStored(Data(32, each), Data(16)));
    EXPECT_FALSE(WebPushKeys::fromStored(made.privateKey(), Data(15)));
    Data longKey = made.privateKey();
    longKey.push_back({});
    EXPECT_FALSE(WebPushKeys::fromStored(longKey, made.authSecret()));
}

TEST_F(WebPushTest, RejectsAllButOneAuthenticRecord)
{
    const auto with = [this](const WebPushForm& f) { return encryptWebPush(subscription, "\0"s, f); };
    const auto flipped = [this](std::size_t position) {
        return std::string(message).replace(position, 1, 1, static_cast<char>(message.at(position) ^ 1));
    };
    const std::pair<const char*, std::string> refused[] = {
        {"shorter than its header", message.substr(0, 20)},
        {"an empty record", message.substr(0, 102)},
        {"longer than 4096", message + std::string(4000, 'x')},
        {"record size is 17", with({.recordSize = 17})},
        {"more than one record", with({.recordSize = 18, .padding = "\2\0"s})},
        {"tag does not match", flipped(0)},
        {"identifier has 64", flipped(20)},
        {"uncompressed", flipped(21)},
        {"on the curve", flipped(85)},
        {"tag does not match", flipped(143)},
        {"no padding delimiter", with({.padding = ""})},
        {"does not mark the last record", with({.padding = "\2\0\1"s})}};
    for (const auto& row : refused)
        EXPECT_THAT([&] { return keys.decrypt(row.second); },
                    ThrowsMessage<WebPushError>(HasSubstr(row.first)));
    for (const char* bad : {"A", "AA==", "AB", "AAA\n", "A+A", "AA A"})
        EXPECT_FALSE(decodeBase64URL(bad)) << bad;
}

TEST(UnifiedPushRegistrationTest, IsARandomUUIDAndRemembersTheReplacedDistributor)
{
    FakeUserDefaults store;
    auto made = UnifiedPushRegistration::make(store).value();
    EXPECT_THAT(made.token(), testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-"
                                                    "[0-9a-f]{12}"));
    for (const char* distributor : {"a", "b"})
        EXPECT_TRUE(made.setEndpoint(store, distributor, "https://push.example/"));
    for (const std::size_t size : {101U, 100U}) {
        store.set("UnifiedPush.Token", std::string(size, 't'));
        EXPECT_EQ(UnifiedPushRegistration::stored(store).has_value(), size == 100);
    }
    EXPECT_EQ(UnifiedPushRegistration::stored(store)->distributor(), "b");
    EXPECT_EQ(UnifiedPushRegistration::stored(store)->replacedDistributor(), "a");
}

TEST(UnifiedPushEndpointTest, AcceptsOnlyHttpsAndLoopbackURLs)
{
    for (const char* accepted : {"https://a/", "HTTPS://A/", "https://a:1?b", "http://localhost/",
                                 "hTTp://LocalHost:1/", "http://127.1.2.3/", "http://[::1]:8/"})
        EXPECT_TRUE(isUsablePushEndpoint(accepted)) << accepted;
    for (const char* rejected :
         {"http://a/", "HTTP://a/", "http://localhost.example/", "http://127.0.0.1.example/", "https://",
          "https:/a", "https", "ftp://a/", "xhttps://a/", "https://u@a/", "https://a /", "https://a/|", ""})
        EXPECT_FALSE(isUsablePushEndpoint(rejected)) << rejected;
}

} // namespace
