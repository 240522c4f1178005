#include "Platform/Linux/Bus/UnifiedPushService.h"

#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Platform/Linux/Bus/FakeDistributor.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <poll.h>

using namespace Platform;
using namespace Platform::Push;
using namespace Platform::Linux;
using namespace Platform::Linux::Bus;
using namespace UnifiedPushTest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

Bytes encrypted(const std::string& subscription, const std::string& payload)
{
    const std::string message = encryptWebPush(WebPushSubscription::parse(subscription), payload);
    return {message.begin(), message.end()};
}

class UnifiedPushServiceTest : public testing::Test {
protected:
    void startApplication(const std::string& chosen = "", int answerSeconds = 20)
    {
        app.emplace(transcript, store, chosen, std::chrono::seconds(answerSeconds));
        app->registerDevice();
    }
    /// Starts the distributor "a" again.
    void startDistributor(const Script& script = {}) { a.emplace(transcript, "a", script); }
    /// Waits for a registration with "a" and its reply, and returns the token.
    std::string waitForRegistration()
    {
        const std::string token = transcript.after("a registers ");
        a->sendEmptyMessage(token); // Answered after the reply to the registration.
        EXPECT_EQ(transcript.after("a answered Message"), "");
        app->advance(std::chrono::seconds(0));
        return token;
    }

    Transcript transcript;
    FakeUserDefaults store;
    std::optional<FakeDistributor> a;
    std::optional<FakeDistributor> b;
    std::optional<Application> app;
};

const Script withoutEndpoint{.followUp = "Nothing"};
const std::string secondEndpoint = "https://push.example/2";

TEST_F(UnifiedPushServiceTest, KeepsTokenAcrossRestartsAndDistributors)
{
    startApplication();
    b.emplace(transcript, "b", Script{{{"success", Value("NEW_ENDPOINT")}}, "NewEndpoint", "1"});
    const std::string token = transcript.after("b registers ");
    const std::string subscription = transcript.after("token ");
    b->call("Message", token, encrypted(subscription, R"({"n":1})"), std::string("id"));
    EXPECT_EQ(transcript.after("payload "), "1");
    EXPECT_THAT(app->log.takeLines(), IsEmpty());
    b.reset();
    app->registerDevice();
    EXPECT_THAT(transcript.after("error 1"), HasSubstr("No push distributor"));
    b.emplace(transcript, "b", withoutEndpoint);
    EXPECT_EQ(transcript.after("b registers "), token);
    EXPECT_EQ(transcript.after("token "), subscription);
    startDistributor();
    const auto late = app->completion;
    app.reset();
    late(std::nullopt);
    startApplication();
    EXPECT_EQ(transcript.after("b registers "), token);
    EXPECT_EQ(transcript.after("token "), subscription);
    app.emplace(transcript, store, "a");
    EXPECT_EQ(transcript.after("a registers "), token);
}

TEST_F(UnifiedPushServiceTest, TakesTheEndpointThatARestartedDistributorAnnounces)
{
    startDistributor();
    startApplication();
    const std::string token = transcript.after("a registers ");
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
    for (const bool isNewApp : {false, true}) {
        isNewApp ? static_cast<void>(app.emplace(transcript, store)) : startDistributor(withoutEndpoint);
        EXPECT_EQ(waitForRegistration(), token);
        a->announce(token, endpoint);
        EXPECT_EQ(transcript.after(""), "a answered NewEndpoint") << "nothing to upload";
    }
    startDistributor(withoutEndpoint);
    EXPECT_EQ(waitForRegistration(), token);
    a->announce(token, secondEndpoint);
    EXPECT_THAT(transcript.after("token "), HasSubstr(secondEndpoint));
    a->call("Unregistered", Dictionary{{"token", Value(token)}});
    EXPECT_EQ(transcript.after("a registers "), token);
    runOn(app->queue, [&] { EXPECT_EQ(store.text("UnifiedPush.Endpoint"), ""); });
}

TEST_F(UnifiedPushServiceTest, RegistersElsewhereWhenADistributorExitsAndOnlyThen)
{
    std::optional<FakeDistributor> first(std::in_place, transcript, "A", Script{.answer = {}});
    startDistributor(Script{.answer = {}});
    b.emplace(transcript, "b", Script{.versions = "12"});
    startApplication();
    transcript.after("A registers ");
    first.reset();
    const std::string token = transcript.after("a registers ");
    a->call("Unregistered", Dictionary{{"token", Value(token)}}); // The reply to the registration decides.
    EXPECT_EQ(transcript.after("a answered "), "Unregistered");
    a.reset();
    EXPECT_THAT(transcript.after(""), StartsWith("error 3")) << "once";
    app->registerDevice();
    EXPECT_EQ(transcript.after(""), "b registers " + token) << "with version 2";
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
    startDistributor();
    b->sendEmptyMessage("flush");
    app->advance(std::chrono::seconds(0));
    b->announce("flush", endpoint);
    EXPECT_EQ(transcript.after("b answered Message"), "");
    EXPECT_EQ(transcript.after(""), "b answered NewEndpoint") << "it stays with its distributor";
    app->registerDevice();
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
    b->call("Unregister", token);
    EXPECT_EQ(transcript.after("b registers "), token) << "in version 1";
}

TEST_F(UnifiedPushServiceTest, LogsEachLaterFailureOnce)
{
    const Script bad{{{"success", Value("REGISTRATION_FAILED")}, {"reason", Value("NETWORK")}}, "Nothing"};
    const auto isLogged = ElementsAre(HasSubstr("cannot reach its server"));
    const std::pair<Script, testing::Matcher<std::vector<std::string>>> cases[] = {
        {bad, isLogged}, {bad, IsEmpty()}, {Script(), IsEmpty()}, {bad, isLogged}};
    startApplication();
    EXPECT_THAT(transcript.after("error 1"), HasSubstr("No push distributor"));
    for (const auto& [script, expected] : cases) {
        startDistributor(script);
        waitForRegistration();
        EXPECT_THAT(app->log.takeLines(), expected);
    }
}

TEST_F(UnifiedPushServiceTest, UsesTheSetDistributorAndLogsOtherChanges)
{
    std::optional<FakeDistributor> other(std::in_place, transcript, "A");
    startApplication("a");
    EXPECT_THAT(transcript.after("error 1"), HasSubstr("org.unifiedpush.Distributor.a, set in"));
    b.emplace(transcript, "b", withoutEndpoint);
    startDistributor();
    EXPECT_THAT(transcript.after(""), StartsWith("a registers "));
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
    EXPECT_THAT(app->log.takeLines(), IsEmpty());
    app.reset();
    EXPECT_EQ(UnifiedPushRegistration::stored(store)->replacedDistributor(), "");
    other.reset();
    a.reset();
    startApplication();
    const std::string token = transcript.after("b registers ");
    transcript.after("b answered error"); // To the call of "Nothing".
    app->advance(std::chrono::seconds(0));
    runOn(app->queue,
          [&] { EXPECT_EQ(store.text("UnifiedPush.Endpoint"), "") << "that of the former distributor"; });
    b->announce(token, secondEndpoint);
    EXPECT_THAT(transcript.after("token "), HasSubstr(secondEndpoint));
    EXPECT_THAT(app->log.takeLines(),
                ElementsAre(testing::AllOf(HasSubstr("Distributor.a is no longer available"),
                                           HasSubstr("org.unifiedpush.Distributor.b replaces it"))));
    runOn(app->queue, [&] {
        const auto stored = UnifiedPushRegistration::stored(store);
        EXPECT_EQ(stored->distributor(), "org.unifiedpush.Distributor.b");
        EXPECT_EQ(stored->replacedDistributor(), "org.unifiedpush.Distributor.a");
    });
}

TEST_F(UnifiedPushServiceTest, IgnoresALateEndpointOfTheFormerDistributor)
{
    auto registration = UnifiedPushRegistration::make(store).value();
    registration.setEndpoint(store, "org.unifiedpush.Distributor.a", endpoint);
    const std::string token = registration.token();
    startDistributor();
    b.emplace(transcript, "b", Script{.followUp = "Nothing", .isHeld = true});
    while (processPending(*b->bus)) {
    }
    startApplication("b");
    pollfd identification{.fd = b->bus->getEventLoopPollData().fd, .events = POLLIN, .revents = 0};
    ASSERT_EQ(::poll(&identification, 1, 20'000), 1);
    a->announce(token, secondEndpoint);
    EXPECT_EQ(transcript.after("a answered "), "NewEndpoint");
    b->bus->enterEventLoopAsync();
    EXPECT_EQ(transcript.after(""), "b registers " + token);
    transcript.after("b answered error"); // To the call of "Nothing".
    app->advance(std::chrono::seconds(0));
    runOn(app->queue, [&] { EXPECT_EQ(store.text("UnifiedPush.Endpoint"), ""); });
}

TEST_F(UnifiedPushServiceTest, StartsADistributorThatIsOnlyInstalled)
{
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data == nullptr)
        GTEST_SKIP() << "the bus must look for services in XDG_DATA_HOME";
    const auto services = std::filesystem::path(data) / "dbus-1/services";
    std::filesystem::create_directories(services);
    std::ofstream(services / "test.service")
        << "[D-BUS Service]\nName=org.unifiedpush.Distributor.a\nExec=/bin/false\n";
    const auto reloadBus = [bus = sdbus::createSessionBusConnection()] {
        sdbus::createProxy(*bus, ServiceName("org.freedesktop.DBus"), ObjectPath("/org/freedesktop/DBus"))
            ->callMethod("ReloadConfig")
            .onInterface("org.freedesktop.DBus");
    };
    reloadBus();
    startApplication();
    EXPECT_THAT(transcript.after("error 3 "), HasSubstr("Distributor.a cannot be called: "));
    std::filesystem::remove(services / "test.service");
    reloadBus();
}

TEST_F(UnifiedPushServiceTest, AcknowledgesMessagesUnlessTheyAreMalformedOrForeign)
{
    startDistributor();
    b.emplace(transcript, "b");
    startApplication();
    const std::string token = transcript.after("a registers ");
    const std::string subscription = transcript.after("token ");
    const Value good(encrypted(subscription, R"({"n":1})"));
    const auto send = [](FakeDistributor& sender, const Value& callToken, const std::string& field,
                         const Value& content) {
        sender.call(field == "endpoint" ? "NewEndpoint" : "Message",
                    Dictionary{{"token", callToken}, {field, content}, {"id", Value("7")}});
    };
    send(*b, Value(token), "message", good);
    EXPECT_EQ(transcript.after("b answered "), "Message");
    send(*a, Value("other"), "message", good);
    EXPECT_EQ(transcript.after("a answered Message"), "");
    const std::tuple<Value, const char*, Value, const char*> cases[] = {
        {Value(token), "message", good, "payload 1"},
        {Value(token), "message", Value(Bytes(4096)), "unreadable push"},
        {Value(token), "message", Value(encrypted(subscription, "[]")), "unreadable push"},
        {Value(token), "message", Value(Bytes(4097)), "a answered Message"},
        {Value(token), "message", Value("text"), "a answered Message"},
        {Value(token), "nothing", Value("text"), "a answered Message"},
        {Value(1), "message", good, "a answered Message"},
        {Value(token), "endpoint", Value("http://localhost:1@b.example/"), "a answered NewEndpoint"},
        {Value(token), "endpoint", Value("https://a/" + std::string(991, 'a')), "a answered NewEndpoint"},
    };
    for (const auto& [callToken, field, content, expected] : cases) {
        send(*a, callToken, field, content);
        EXPECT_EQ(transcript.after(""), expected);
        if (expected == std::string("unreadable push")) {
            EXPECT_EQ(transcript.after(""), "a answered 7");
        }
    }
    EXPECT_THAT(app->log.takeLines(), testing::SizeIs(3));
    runOn(app->queue, [&] {
        app->completion(PushRefusal{"no thanks"});
        EXPECT_THAT(app->log.takeLines(), IsEmpty()) << "inside the call";
    });
    EXPECT_EQ(transcript.after(""), "a answered 7");
    EXPECT_THAT(app->log.takeLines(), ElementsAre(HasSubstr("no thanks")));
    send(*a, Value(token), "message", good);
    EXPECT_EQ(transcript.after("payload "), "1");
    app->completion(PushRefusal{"no room", true});
    EXPECT_EQ(transcript.after(""), "a answered error: no room");
}

TEST_F(UnifiedPushServiceTest, RepliesToEachMessageBeforeDeliveringTheNext)
{
    startDistributor();
    startApplication();
    const std::string token = transcript.after("a registers ");
    const Value message(encrypted(transcript.after("token "), R"({"n":1})"));
    std::promise<void> areAllSent;
    std::promise<void> areAllRead;
    app->onPayload = [&, sent = areAllSent.get_future().share(), number = 0]() mutable {
        sent.wait();
        if (number > 0) {
            EXPECT_EQ(transcript.after("a answered "), std::to_string(number));
        }
        app->completion(std::nullopt);
        if (++number == 3)
            areAllRead.set_value();
    };
    for (const char* id : {"1", "2", "3"})
        a->call("Message", Dictionary{{"token", Value(token)}, {"message", message}, {"id", Value(id)}});
    a->sendEmptyMessage(token); // Answered after all messages have arrived.
    EXPECT_EQ(transcript.after("a answered Message"), "");
    areAllSent.set_value();
    areAllRead.get_future().wait();
    EXPECT_EQ(transcript.after("a answered "), "3");
}

TEST_F(UnifiedPushServiceTest, FailsWhileItsNameIsTakenOrTheRegistrationCannotBeStored)
{
    startDistributor();
    auto rival = sdbus::createSessionBusConnection();
    rival->requestName(ServiceName(application));
    store.isWritable = false;
    startApplication();
    EXPECT_THAT(transcript.after("error 7"), HasSubstr("cannot be stored"));
    runOn(app->queue, [&] { store.isWritable = true; });
    app->registerDevice();
    EXPECT_THAT(transcript.after("error 2"), HasSubstr("Another program owns the name com.quorvane.test"));
    rival->releaseName(ServiceName(application)); // Returns once the name is free.
    app->registerDevice();
    const std::string token = transcript.after("a registers ");
    transcript.after("a answered NewEndpoint");
    for (const bool isWritable : {false, true}) {
        runOn(app->queue, [&] { store.isWritable = isWritable; });
        a->announce(token, secondEndpoint);
        EXPECT_THAT(transcript.after("a answered "), HasSubstr(isWritable ? "NewEndpoint" : "stored"));
    }
    runOn(app->queue, [&] { EXPECT_EQ(store.text("UnifiedPush.Endpoint"), secondEndpoint); });
}

TEST_F(UnifiedPushServiceTest, LogsAMissingEndpointOnce)
{
    using namespace std::chrono_literals;
    startDistributor(withoutEndpoint);
    startApplication();
    waitForRegistration();
    app->advance(59s);
    EXPECT_THAT(app->log.takeLines(), IsEmpty());
    app->advance(1s);
    EXPECT_THAT(app->log.takeLines(),
                ElementsAre(HasSubstr("org.unifiedpush.Distributor.a registered this device")));
    app->advance(1000s);
    EXPECT_THAT(app->log.takeLines(), IsEmpty()) << "once";
    for (int registration = 0; registration < 2; ++registration) {
        app->registerDevice();
        waitForRegistration();
        app->advance(59s);
    }
    EXPECT_THAT(app->log.takeLines(), IsEmpty()) << "registered again";
    a->announce(store.text("UnifiedPush.Token").value(), endpoint);
    EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint));
    app->advance(60s);
    EXPECT_THAT(app->log.takeLines(), IsEmpty());
}

TEST_F(UnifiedPushServiceTest, ReportsErrorsAndRegistersLater)
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
        app.reset();
        store.values.clear();
        startDistributor(script);
        startApplication("", script.answer.empty() ? 1 : 20);
        EXPECT_THAT(transcript.after("error "), testing::ContainsRegex(words));
        app->advance(std::chrono::seconds(60));
        EXPECT_THAT(app->log.takeLines(), IsEmpty()) << "no endpoint is expected";
        startDistributor();
        const std::string token = transcript.after("a registers ");
        EXPECT_THAT(transcript.after("token "), HasSubstr(endpoint)) << words;
        a->call("Unregister", token);
        EXPECT_EQ(transcript.after("a registers "), token);
    }
}

} // namespace
