#include "Platform/Linux/Bus/UnifiedPushService.h"

#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Platform/Linux/Bus/FakeDistributor.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <gmock/gmock.h>

#include <future>

using namespace Platform;
using namespace Platform::Push;
using namespace Platform::Linux;
using namespace Platform::Linux::Bus;
using namespace UnifiedPushTest;
using testing::HasSubstr;

namespace {

Bytes encrypted(const std::string& subscription, const std::string& payload)
{
    const std::string message = encryptWebPush(WebPushSubscription::parse(subscription), payload);
    return {message.begin(), message.end()};
}

TEST(UnifiedPushServiceTest, KeepsTokenAcrossRestartsAndDistributors)
{
    Transcript transcript;
    FakeUserDefaults store;
    std::optional<Application> app(std::in_place, transcript, store);
    app->registerDevice();
    std::optional<FakeDistributor> b(std::in_place, transcript, "b",
                                     Script{{{"success", Value("NEW_ENDPOINT")}}, "NewEndpoint", "1"});
    const std::string token = transcript.after("b registers ");
    const std::string subscription = transcript.after("token ");
    b->call("Message", token, encrypted(subscription, R"({"n":1})"), std::string("id"));
    EXPECT_EQ(transcript.after("payload "), "1");
    EXPECT_THAT(app->log.takeLines(), testing::IsEmpty());
    b.reset();
    app->registerDevice();
    EXPECT_THAT(transcript.after("error 1"), HasSubstr("No push distributor"));
    b.emplace(transcript, "b", Script{.followUp = "Nothing"});
    EXPECT_EQ(transcript.after("b registers "), token);
    EXPECT_EQ(transcript.after("token "), subscription);
    const FakeDistributor a(transcript, "a");
    const auto late = app->completion;
    app.reset();
    late(std::nullopt);
    app.emplace(transcript, store);
    app->registerDevice();
    EXPECT_EQ(transcript.after("b registers "), token);
    EXPECT_EQ(transcript.after("token "), subscription);
    app.reset();
    app.emplace(transcript, store, "a");
    EXPECT_EQ(transcript.after("a registers "), token);
}

TEST(UnifiedPushServiceTest, TakesTheEndpointThatARestartedDistributorAnnounces)
{
    Transcript transcript;
    FakeUserDefaults store;
    Application app(transcript, store);
    std::optional<FakeDistributor> distributor(std::in_place, transcript, "a");
    app.registerDevice();
    const std::string token = transcript.after("a registers ");
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
    const auto restartAndAnnounce = [&](const char* announced) {
        distributor.reset();
        distributor.emplace(transcript, "a", Script{.followUp = "Nothing"});
        EXPECT_EQ(transcript.after("a registers "), token);
        transcript.after("a answered error"); // To the call of "Nothing".
        distributor->call("NewEndpoint",
                          Dictionary{{"token", Value(token)}, {"endpoint", Value(std::string(announced))}});
    };
    restartAndAnnounce(endpoint);
    EXPECT_EQ(transcript.after(""), "a answered NewEndpoint") << "nothing to upload";
    restartAndAnnounce("https://push.example/2");
    EXPECT_THAT(transcript.after("token "), HasSubstr("https://push.example/2"));
    distributor->call("Unregistered", Dictionary{{"token", Value(token)}});
    EXPECT_EQ(transcript.after("a registers "), token);
    app.onMain([&] { EXPECT_EQ(store.text("UnifiedPush.Endpoint"), ""); });
}

TEST(UnifiedPushServiceTest, RegistersElsewhereWhenADistributorExitsAndOnlyThen)
{
    Transcript transcript;
    FakeUserDefaults store;
    std::optional<FakeDistributor> silent(std::in_place, transcript, "a", Script{.answer = {}});
    FakeDistributor second(transcript, "b", Script{.versions = "12"});
    Application app(transcript, store);
    app.registerDevice();
    const std::string token = transcript.after("a registers ");
    silent.reset();
    EXPECT_EQ(transcript.after(""), "b registers " + token) << "with version 2";
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
    const FakeDistributor third(transcript, "a");
    second.call("Message", Dictionary{{"token", Value("flush")}});
    app.advance(std::chrono::seconds(0));
    second.call("NewEndpoint", Dictionary{{"token", Value("flush")}});
    EXPECT_EQ(transcript.after("b answered Message"), "");
    EXPECT_EQ(transcript.after(""), "b answered NewEndpoint") << "it stays with its distributor";
    app.registerDevice();
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
    second.call("Unregister", token);
    EXPECT_EQ(transcript.after("b registers "), token) << "in version 1";
}

TEST(UnifiedPushServiceTest, ReportsATakenName)
{
    Transcript transcript;
    FakeUserDefaults store;
    const FakeDistributor distributor(transcript, "a");
    auto rival = sdbus::createSessionBusConnection();
    rival->requestName(ServiceName(application));
    Application app(transcript, store);
    app.registerDevice();
    EXPECT_THAT(transcript.after("error 2"), HasSubstr("Another program owns the name com.quorvane.test"));
    rival->releaseName(ServiceName(application)); // Returns once the name is free.
    app.registerDevice();
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
}

TEST(UnifiedPushServiceTest, LogsEachLaterFailureOnce)
{
    Transcript transcript;
    FakeUserDefaults store;
    Application app(transcript, store);
    std::optional<FakeDistributor> distributor;
    const auto registerAt = [&](const Script& script) {
        distributor.reset();
        distributor.emplace(transcript, "a", script);
        const std::string token = transcript.after("a registers ");
        // The reply to this call arrives after the reply to the registration.
        distributor->call("Message", Dictionary{{"token", Value(token)}});
        EXPECT_EQ(transcript.after("a answered Message"), "");
        app.advance(std::chrono::seconds(0));
        return app.log.takeLines();
    };
    const Script good;
    const Script bad{{{"success", Value("REGISTRATION_FAILED")}, {"reason", Value("NETWORK")}}, "Nothing"};
    app.registerDevice();
    EXPECT_THAT(transcript.after("error 1"), HasSubstr("No push distributor"));
    EXPECT_THAT(registerAt(bad), testing::ElementsAre(HasSubstr("cannot reach its server")));
    EXPECT_THAT(registerAt(bad), testing::IsEmpty());
    EXPECT_THAT(registerAt(good), testing::IsEmpty());
    EXPECT_THAT(registerAt(bad), testing::ElementsAre(HasSubstr("cannot reach its server")));
}

TEST(UnifiedPushServiceTest, UsesTheSetDistributorAndLogsOtherChanges)
{
    Transcript transcript;
    FakeUserDefaults store;
    {
        Application app(transcript, store, "a");
        const FakeDistributor other(transcript, "A");
        app.registerDevice();
        EXPECT_THAT(transcript.after("error 1"), HasSubstr("org.unifiedpush.Distributor.a, set in"));
        const FakeDistributor another(transcript, "b");
        const FakeDistributor chosen(transcript, "a");
        EXPECT_THAT(transcript.after(""), testing::StartsWith("a registers "));
        EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
        EXPECT_THAT(app.log.takeLines(), testing::IsEmpty());
    }
    EXPECT_EQ(UnifiedPushRegistration::stored(store)->replacedDistributor(), "");
    FakeDistributor other(transcript, "b", Script{.followUp = "Nothing"});
    Application app(transcript, store);
    app.registerDevice();
    const std::string token = transcript.after("b registers ");
    transcript.after("b answered error"); // To the call of "Nothing".
    app.advance(std::chrono::seconds(0));
    other.call("NewEndpoint",
               Dictionary{{"token", Value(token)}, {"endpoint", Value("https://push.example/2")}});
    EXPECT_THAT(transcript.after("token "), HasSubstr("https://push.example/2"));
    EXPECT_THAT(app.log.takeLines(),
                testing::ElementsAre(testing::AllOf(HasSubstr("Distributor.a is no longer available"),
                                                    HasSubstr("org.unifiedpush.Distributor.b replaces it"))));
    app.onMain([&] {
        const auto stored = UnifiedPushRegistration::stored(store);
        EXPECT_EQ(stored->distributor(), "org.unifiedpush.Distributor.b");
        EXPECT_EQ(stored->replacedDistributor(), "org.unifiedpush.Distributor.a");
    });
}

TEST(UnifiedPushServiceTest, AcknowledgesMessagesUnlessTheyAreMalformedOrForeign)
{
    Transcript transcript;
    FakeUserDefaults store;
    FakeDistributor known(transcript, "a");
    FakeDistributor stranger(transcript, "b");
    Application app(transcript, store);
    app.registerDevice();
    const std::string token = transcript.after("a registers ");
    const std::string subscription = transcript.after("token ");
    const Bytes good = encrypted(subscription, R"({"n":1})");
    const auto send = [&](FakeDistributor& sender, const auto& callToken, const char* field,
                          const auto& content) {
        const Dictionary arguments{{"token", Value(callToken)}, {field, Value(content)}, {"id", Value("7")}};
        sender.call(std::string(field) == "endpoint" ? "NewEndpoint" : "Message", arguments);
    };
    send(stranger, token, "message", good);
    EXPECT_EQ(transcript.after("b answered "), "Message");
    send(known, "other", "message", good);
    EXPECT_EQ(transcript.after("a answered Message"), "");
    const std::tuple<Value, const char*, Value, const char*> cases[] = {
        {Value(token), "message", Value(good), "payload 1"},
        {Value(token), "message", Value(Bytes(4096)), "unreadable push"},
        {Value(token), "message", Value(encrypted(subscription, "[]")), "unreadable push"},
        {Value(token), "message", Value(Bytes(4097)), "a answered Message"},
        {Value(token), "message", Value("text"), "a answered Message"},
        {Value(token), "nothing", Value("text"), "a answered Message"},
        {Value(1), "message", Value(good), "a answered Message"},
        {Value(token), "endpoint", Value("http://127.0.0.1.example/"), "a answered NewEndpoint"},
        {Value(token), "endpoint", Value("http://localhost:1@b.example/"), "a answered NewEndpoint"},
        {Value(token), "endpoint", Value("https://a/" + std::string(991, 'a')), "a answered NewEndpoint"},
    };
    for (const auto& [callToken, field, content, expected] : cases) {
        send(known, callToken, field, content);
        EXPECT_EQ(transcript.after(""), expected);
        if (expected == std::string("unreadable push")) {
            EXPECT_EQ(transcript.after(""), "a answered 7");
        }
    }
    EXPECT_THAT(app.log.takeLines(), testing::SizeIs(4));
    app.completion(PushRefusal{"no thanks"});
    EXPECT_EQ(transcript.after(""), "a answered 7");
    EXPECT_THAT(app.log.takeLines(), testing::ElementsAre(HasSubstr("no thanks")));
    send(known, token, "message", good);
    EXPECT_EQ(transcript.after("payload "), "1");
    app.completion(PushRefusal{"no room", true});
    EXPECT_EQ(transcript.after(""), "a answered error: no room");
}

TEST(UnifiedPushServiceTest, RepliesToEachMessageBeforeDeliveringTheNext)
{
    Transcript transcript;
    FakeUserDefaults store;
    FakeDistributor distributor(transcript, "a");
    Application app(transcript, store);
    app.registerDevice();
    const std::string token = transcript.after("a registers ");
    const std::string subscription = transcript.after("token ");
    constexpr int messageCount = 3;
    std::promise<void> allAreSent;
    std::promise<void> allAreTaken;
    app.onPayload = [&, sent = allAreSent.get_future().share(), number = 0]() mutable {
        sent.wait();
        if (++number > 1) {
            EXPECT_EQ(transcript.after("a answered " + std::to_string(number - 1)), "");
        }
        app.completion(std::nullopt);
        if (number == messageCount)
            allAreTaken.set_value();
    };
    for (int number = 1; number <= messageCount; ++number)
        distributor.call("Message", Dictionary{{"token", Value(token)},
                                               {"message", Value(encrypted(subscription, R"({"n":1})"))},
                                               {"id", Value(std::to_string(number))}});
    // This call is answered on the bus thread, after all messages have arrived.
    distributor.call("Message", Dictionary{{"token", Value(token)}});
    EXPECT_EQ(transcript.after("a answered Message"), "");
    allAreSent.set_value();
    allAreTaken.get_future().wait();
    EXPECT_EQ(transcript.after("a answered " + std::to_string(messageCount)), "");
}

TEST(UnifiedPushServiceTest, FailsWhenTheRegistrationCannotBeStored)
{
    Transcript transcript;
    FakeUserDefaults store;
    FakeDistributor distributor(transcript, "a");
    Application app(transcript, store);
    store.isWritable = false;
    app.registerDevice();
    EXPECT_THAT(transcript.after("error 7"), HasSubstr("cannot be stored"));
    app.onMain([&] { store.isWritable = true; });
    app.registerDevice();
    const std::string token = transcript.after("a registers ");
    transcript.after("a answered NewEndpoint");
    for (const bool isWritable : {false, true}) {
        app.onMain([&] { store.isWritable = isWritable; });
        distributor.call("NewEndpoint",
                         Dictionary{{"token", Value(token)}, {"endpoint", Value("https://push.example/2")}});
        EXPECT_THAT(transcript.after("a answered "), HasSubstr(isWritable ? "NewEndpoint" : "stored"));
    }
    app.onMain([&] { EXPECT_EQ(store.text("UnifiedPush.Endpoint"), "https://push.example/2"); });
}

TEST(UnifiedPushRegistrationTest, IsARandomUUIDAndRemembersTheReplacedDistributor)
{
    FakeUserDefaults store;
    auto made = UnifiedPushRegistration::make(store).value();
    EXPECT_THAT(made.token(), testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-"
                                                    "[0-9a-f]{12}"));
    for (const char* distributor : {"a", "b"})
        EXPECT_TRUE(made.setEndpoint(store, distributor, endpoint));
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
         {"http://a/", "HTTP://a/", "http://localhost.example/", "https://", "https:/a", "https", "ftp://a/",
          "xhttps://a/", "https://u@a/", "https://a /", ""})
        EXPECT_FALSE(isUsablePushEndpoint(rejected)) << rejected;
}

TEST(UnifiedPushServiceTest, LogsAMissingEndpointOnce)
{
    using namespace std::chrono_literals;
    Transcript transcript;
    FakeUserDefaults store;
    FakeDistributor distributor(transcript, "a", Script{.followUp = "Nothing"});
    Application app(transcript, store);
    const auto registerAgain = [&] {
        app.registerDevice();
        const std::string token = transcript.after("a registers ");
        // The reply to this call arrives after the reply to the registration.
        distributor.call("Message", Dictionary{{"token", Value(token)}});
        EXPECT_EQ(transcript.after("a answered Message"), "");
        return token;
    };
    registerAgain();
    app.advance(59s);
    EXPECT_THAT(app.log.takeLines(), testing::IsEmpty());
    app.advance(1s);
    EXPECT_THAT(app.log.takeLines(),
                testing::ElementsAre(HasSubstr("org.unifiedpush.Distributor.a registered this device")));
    app.advance(1000s);
    EXPECT_THAT(app.log.takeLines(), testing::IsEmpty()) << "once";
    registerAgain();
    app.advance(59s);
    const std::string token = registerAgain();
    app.advance(59s);
    EXPECT_THAT(app.log.takeLines(), testing::IsEmpty()) << "registered again";
    distributor.call("NewEndpoint", Dictionary{{"token", Value(token)}, {"endpoint", Value(endpoint)}});
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
    app.advance(60s);
    EXPECT_THAT(app.log.takeLines(), testing::IsEmpty());
}

TEST(UnifiedPushServiceTest, ReportsErrorsAndRegistersLater)
{
    const auto failure = [](const std::string& reason) -> Script {
        return {{{"success", Value("REGISTRATION_FAILED")}, {"reason", Value(reason)}}, "Nothing"};
    };
    const std::pair<Script, const char*> cases[] = {
        {failure("INTERNAL_ERROR"), "^3 .*internal error"},
        {failure("NETWORK"), "^4 .*network"},
        {failure("ACTION_REQUIRED"), "^5 .*Open it"},
        {failure("VAPID_REQUIRED"), "^6 .*VAPID"},
        {failure("UNAUTHORIZED"), "^6 .*sandbox"},
        {failure("a\nb"), "^6 .*the reason \"a b\""},
        {failure(std::string(119, 'a') + "ää"), "^6 .*the reason \"a{119}…\""},
        {{{{"success", Value("REGISTRATION_REFUSED")}}, "Nothing", "1"}, "^6 .*refused"},
        {{{{"success", Value(1)}}, "Nothing"}, "^3 .*unexpected reply"},
        {{.followUp = "Unregistered"}, "^6 .*ended"},
        {{.versions = "3"}, "^3 .*no supported"},
        {{.answer = {}}, "^3 .*does not respond"},
    };
    for (const auto& [script, words] : cases) {
        Transcript transcript;
        FakeUserDefaults store;
        std::optional<FakeDistributor> distributor(std::in_place, transcript, "a", script);
        Application app(transcript, store, "", std::chrono::seconds(script.answer.empty() ? 1 : 20));
        app.registerDevice();
        EXPECT_THAT(transcript.after("error "), testing::ContainsRegex(words));
        distributor.reset();
        distributor.emplace(transcript, "a");
        EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint)) << words;
    }
}

} // namespace
