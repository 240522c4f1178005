#include "Platform/Linux/Bus/BusClient.h"

#include "Platform/Linux/Bus/SessionBus.h"
#include "Platform/Linux/PrivateSocket.h"
#include "Platform/Linux/SessionBusNames.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Platform/Linux/Bus/SDBusVersions.h"

#include <gmock/gmock.h>

#include <sys/socket.h>

using namespace Platform;
using namespace Platform::Linux::Bus;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

using Lines = std::vector<std::string>;

/// A connection to the bus with one client.
struct Party {
    Party() { bus.start(); }

    [[nodiscard]] std::string uniqueName() { return bus.connection().getUniqueName(); }
    /// Has the same effect as the exit of the bus daemon.
    void loseBus() { ::shutdown(bus.connection().getEventLoopPollData().fd, SHUT_RDWR); }

    /// Runs the next item of the queue when it arrives.
    void runNext()
    {
        ASSERT_TRUE(queue.waitForItem()) << "nothing arrived";
        queue.runNext();
    }

    RecordingUnifiedLog log;
    ManualScheduler::Queue queue;
    SessionBus bus{log.adapterLog};
    std::optional<BusClient> client{std::in_place, bus, queue};
};

struct BusClientTest : testing::Test {
    BusClientTest()
    {
        server->client->claimName("test.Server");
        add("Number", "u", [](const BusRequest& request) { request.reply(std::uint32_t{7}); });
        add("Word", "s", [](const BusRequest& request) { request.reply(std::string("seven")); });
        add("Two", "us",
            [](const BusRequest& request) { request.reply(std::uint32_t{7}, std::string("!")); });
        add("None", "", [](const BusRequest& request) { request.reply(); });
        add("Refuse", "u", [](const BusRequest& request) { request.fail("no thanks"); });
        server->client->exportMethod(
            "/test", {"test.Interface", "Hold", "s", "u", true, [this](const BusRequest& request) {
                          return [this, request, word = request.read<std::string>()] {
                              events.push_back("held " + word.value_or("something else"));
                              held.push_back(request);
                          };
                      }});
    }

    /// Exports a method that is answered on the bus thread.
    void add(const char* name, const char* result, const std::function<void(const BusRequest&)>& answer)
    {
        server->client->exportMethod(
            "/test", {"test.Interface", name, "", result, true, [=](const BusRequest& request) {
                          answer(request);
                          return DispatchQueue::Work();
                      }});
    }

    static BusCall to(const char* method, std::optional<std::chrono::microseconds> timeout = 20s)
    {
        return {"test.Server", "/test", "test.Interface", method, timeout};
    }
    /// Calls a method and adds the answer to `events`.
    template <typename... Arguments>
    void call(Party& caller, const BusCall& call, const Arguments&... arguments)
    {
        const auto record = [this](const BusAnswer<std::uint32_t>& answer) {
            events.push_back(answer.value   ? std::to_string(*answer.value)
                             : answer.error ? answer.error->name + ": " + answer.error->message
                                            : "a reply of another type");
        };
        caller.client->call<std::uint32_t>(call, record, arguments...);
    }
    /// Makes a call that the server leaves unanswered.
    void hold(const std::string& word)
    {
        call(*app, to("Hold"), word);
        server->runNext();
        EXPECT_THAT(std::exchange(events, {}), ElementsAre("held " + word));
    }

    Lines events;
    std::vector<BusRequest> held;
    std::optional<Party> server{std::in_place};
    std::optional<Party> app{std::in_place};
};

TEST_F(BusClientTest, DeliversRepliesAndErrors)
{
    const BusCall nowhere{"test.Nowhere", "/test", "test.Interface", "Number", 20s};
    const std::string errors = "org.freedesktop.DBus.Error.";
    const std::pair<BusCall, std::string> cases[] = {
        {to("Number"), "7"},
        {to("Number", std::nullopt), "7"},
        {to("Two"), "7"},
        {to("Word"), "a reply of another type"},
        {to("None"), "a reply of another type"},
        {to("Refuse"), errors + "Failed: no thanks"},
        {to("Missing"), errors + "UnknownMethod: "},
        {nowhere, errors + "ServiceUnknown: "},
    };
    for (const auto& [question, answer] : cases) {
        call(*app, question);
        EXPECT_THAT(events, IsEmpty()) << "inside the call";
        app->runNext();
        EXPECT_THAT(std::exchange(events, {}), ElementsAre(StartsWith(answer))) << question.method;
    }
    call(*app, to("Hold", 50ms), std::string("too long"));
    app->runNext();
    EXPECT_THAT(events, ElementsAre(testing::ContainsRegex("(NoReply|Timeout|TimedOut|ETIMEDOUT): ")));
}

TEST_F(BusClientTest, SendsOnlyTheFirstAnswerFromAnyThread)
{
    hold("first");
    hold("second");
    std::thread([this] {
        held.at(1).reply(std::uint32_t{2});
        held.at(0).fail("changed my mind");
        held.at(0).reply(std::uint32_t{1});
    }).join();
    app->runNext();
    app->runNext();
    EXPECT_THAT(events, ElementsAre("2", "org.freedesktop.DBus.Error.Failed: changed my mind"));
}

TEST_F(BusClientTest, DropsAnswersAfterTheServerIsDestroyed)
{
    hold("word");
    server->client.reset();
    held.back().reply(std::uint32_t{1});
    server.reset();
    held.back().reply(std::uint32_t{1});
    app->runNext();
    EXPECT_THAT(events, ElementsAre(StartsWith("org.freedesktop.DBus.Error.NoReply: ")));
}

TEST_F(BusClientTest, DeliversNothingAfterDestruction)
{
    const auto watch = [this] {
        app->client->watchNames("arg0='test.Name'",
                                [this](const auto& name, const auto&) { events.push_back(name); });
    };
    // While the answer is queued.
    call(*app, to("Number"));
    ASSERT_TRUE(app->queue.waitForItem());
    app->client.emplace(app->bus, app->queue);
    app->runNext();
    // While a signal is queued.
    watch();
    server->client->claimName("test.Name");
    ASSERT_TRUE(app->queue.waitForItem());
    app->client.emplace(app->bus, app->queue);
    app->runNext();
    // Before there is an answer.
    hold("word");
    app->client.emplace(app->bus, app->queue);
    held.back().reply(std::uint32_t{1});
    // While answers arrive.
    for (int round = 0; round < 200; ++round) {
        call(*app, to("Number"));
        call(*app, to("Number"));
        watch();
        app->client.emplace(app->bus, app->queue);
    }
    EXPECT_THAT(events, IsEmpty());
    call(*app, to("Word"));
    while (events.empty() && !HasFatalFailure())
        app->runNext();
    EXPECT_THAT(events, ElementsAre("a reply of another type"));
}

TEST_F(BusClientTest, ReportsNameOwnersInOrder)
{
    app->client->watchNames("arg0namespace='test.Names'", [this](const auto& name, const auto& owner) {
        events.push_back(name + " " + owner);
    });
    std::optional<Party> first(std::in_place);
    const std::string firstName = first->uniqueName();
    Party second;
    // Sent directly to this connection, bypassing the match rule.
    const auto object = sdbus::createObject(second.bus.connection(), ObjectPath("/org/freedesktop/DBus"));
    auto forged = object->createSignal(InterfaceName("org.freedesktop.DBus"), SignalName("NameOwnerChanged"));
    forged << "test.Names.a"
           << "" << firstName;
    forged.setDestination(app->uniqueName());
    forged.send();
    EXPECT_TRUE(first->client->claimName("test.Names.a"));
    EXPECT_TRUE(first->client->claimName("test.Names.a"));
    EXPECT_FALSE(second.client->claimName("test.Names.a"));
    EXPECT_TRUE(second.client->claimName("test.Names.b"));
    first.reset();
    for (int count = 0; count < 3; ++count)
        app->runNext();
    EXPECT_TRUE(second.client->claimName("test.Names.a"));
    app->runNext();
    EXPECT_THAT(events, ElementsAre("test.Names.a " + firstName, "test.Names.b " + second.uniqueName(),
                                    "test.Names.a ", "test.Names.a " + second.uniqueName()));
}

TEST_F(BusClientTest, FailsCallsWhenTheConnectionIsLost)
{
    hold("word");
    app->loseBus();
    app->runNext();
    EXPECT_EQ(events.size(), 1U) << "the pending call";
    call(*app, to("Number"));
    EXPECT_EQ(events.size(), 1U) << "inside the call";
    app->runNext();
    EXPECT_EQ(events.size(), 2U) << "the next call";
    EXPECT_TRUE(app->client->claimName("test.Name"));
    EXPECT_THROW(app->client->watchNames("arg0='a.b'", [](const auto&, const auto&) {}), std::runtime_error);
    server->loseBus();
    server->bus.stop();
    held.back().reply(std::uint32_t{1});
}

TEST(SessionBusNamesTest, ListsRunningAndStartableNamesInLimitedTime)
{
    using Platform::Linux::SessionBusNames;
    {
        Party party;
        party.client->claimName("test.Running");
        const SessionBusNames names = SessionBusNames::query(20s);
        EXPECT_TRUE(names.running.contains("test.Running"));
        EXPECT_FALSE(names.startable.contains("test.Running"));
        EXPECT_TRUE(names.startable.contains("org.freedesktop.DBus"));
    }
    const TemporaryFolder folder;
    const std::string file = folder.path("bus");
    const std::pair<std::string, const char*> cases[] = {{"unix:path=" + file, "it does not respond"},
                                                         {"unix:path=/none", "No such file"}};
    // Accepts connections but sends nothing.
    const auto silent = Platform::Linux::listenOnPrivateSocket(file);
    constexpr const char* variable = "DBUS_SESSION_BUS_ADDRESS";
    const std::string previous = std::getenv(variable);
    for (const auto& [address, reason] : cases) {
        ::setenv(variable, address.c_str(), 1);
        EXPECT_THAT([] { SessionBusNames::query(100ms); },
                    testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr(reason)));
    }
    ::setenv(variable, previous.c_str(), 1);
}

} // namespace
