#include "Platform/Linux/Bus/NotificationServer.h"

#include "Platform/Linux/Bus/SessionBus.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/Push/PushPayload.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Platform/Linux/Bus/SDBusVersions.h"
#include "Tests/Platform/Linux/Bus/Transcript.h"

#include <gmock/gmock.h>

#include <atomic>

using namespace Platform;
using namespace std::string_literals;
using testing::ElementsAre;

namespace {

using Text = std::string;
using Strings = std::vector<Text>;
using Values = PropertyList::Dictionary;
using namespace PresentationOptions;
constexpr const char* serverName = "org.freedesktop.Notifications";
/// How a notification ends: by its action, or for one of the protocol's reasons.
enum End : std::uint32_t { tapped, expired, dismissed, closed };

/// Runs a notification server until destroyed and records the calls it receives. Its ids start at 1.
struct FakeServer {
    enum class Behavior { accepting, slow, refusing };
    /// If `capabilities` is empty, GetCapabilities fails; if it is "silent", it never returns.
    FakeServer(const Strings& capabilities, Transcript& transcript, const char* name = serverName)
    {
        const auto add = [this](const char* method, auto work) {
            addMethod(*object, serverName, method, std::move(work));
        };
        add("GetServerInformation", [] { return std::tuple("Fake"s, "us"s, "7"s, "1.2"s); });
        add("GetCapabilities", [=, this, &transcript](sdbus::Result<Strings>&& result) {
            if (capabilities == Strings{"silent"})
                heldCapabilities = std::move(result);
            else if (capabilities.empty())
                result.returnError(sdbus::Error(ErrorName("test.No"), ""));
            else
                result.returnResults(capabilities);
            transcript.add("capabilities?");
        });
        add("CloseNotification",
            [&transcript](std::uint32_t id) { transcript.add("close " + std::to_string(id)); });
        add("Notify", [=, this, &transcript](
                          sdbus::Result<std::uint32_t>&& result, const Text& sender, std::uint32_t replaced,
                          const Text& icon, const Text& summary, const Text& body, const Strings& actions,
                          const std::map<Text, sdbus::Variant>& hints, std::int32_t milliseconds) {
            EXPECT_EQ(sender + icon + hints.at("desktop-entry").get<Text>(), "Appapp.id");
            EXPECT_EQ(replaced, 0U);
            EXPECT_EQ(milliseconds, -1);
            EXPECT_NE(hints.contains("sound-name"), hints.contains("suppress-sound"));
            held = std::move(result);
            transcript.add(summary + '|' + body + '|' + (actions.empty() ? "" : actions.back()) + '|' +
                           std::to_string(hints.at("urgency").get<std::uint8_t>()) +
                           (hints.at("transient").get<bool>() ? " transient" : "") +
                           (hints.contains("sound-name") ? " sound" : ""));
            if (behavior == Behavior::accepting)
                held.returnResults(nextId++);
            else if (behavior == Behavior::refusing)
                held.returnError(sdbus::Error(ErrorName("test.No"), "private"));
        });
        publishMethods(*object);
        takeName(*bus, name);
        bus->enterEventLoopAsync();
    }
    /// Sends the signal to all connections, or only to `receiver`, bypassing its match rules.
    void end(std::initializer_list<std::uint32_t> ids, End by, const Text& receiver = {}) const
    {
        for (const std::uint32_t id : ids) {
            auto out = object->createSignal(
                InterfaceName(serverName), SignalName(by == tapped ? "ActionInvoked" : "NotificationClosed"));
            out << id;
            by == tapped ? out << "default" : out << std::uint32_t{by};
            if (!receiver.empty())
                out.setDestination(receiver);
            object->emitSignal(out);
        }
    }
    std::atomic<Behavior> behavior = Behavior::accepting;
    std::atomic<std::uint32_t> nextId = 1;
    std::unique_ptr<sdbus::IConnection> bus = sdbus::createSessionBusConnection();
    std::unique_ptr<sdbus::IObject> object =
        sdbus::createObject(*bus, ObjectPath("/org/freedesktop/Notifications"));
    sdbus::Result<std::uint32_t> held;
    sdbus::Result<Strings> heldCapabilities;
};

class NotificationServerTest : public testing::Test {
protected:
    NotificationServerTest() { bus.start(); }
    ~NotificationServerTest() override { bus.stop(); }
    void startServer(const Strings& capabilities)
    {
        fake.emplace(capabilities, transcript);
        EXPECT_THAT(transcript.take(1), ElementsAre("capabilities?"));
    }
    void show(const Text& title, const Text& body = {}, Values aps = {}, unsigned bits = list | banner)
    {
        aps.emplace("alert", Values{{"title", title}, {"body", body}});
        const auto notification = Push::readPushContents({{"aps", aps}}, {}).notification.value();
        const auto done = [this](bool isShown) {
            transcript.add(isShown ? server.information()->name : "not shown");
        };
        mainQueue.async([=, this] {
            server.show(notification, bits, done, [=, this] { transcript.add("tap " + title); });
        });
    }
    Transcript transcript;
    ManualScheduler timers;
    RecordingUnifiedLog log;
    Linux::Bus::SessionBus bus{log.adapterLog};
    Linux::Bus::NotificationServer server{{bus, mainQueue, timers, log.adapterLog},
                                          {"App", "app.id", "Öffnen"}};
    Linux::WorkerQueue mainQueue{"main", Linux::WorkerQueue::Priority::default_};
    std::optional<FakeServer> fake;
};

TEST_F(NotificationServerTest, AdaptsToServerCapabilities)
{
    const auto shows = [this](const Strings& capabilities, const Text& title, const Text& body,
                              const Values& aps, unsigned options, const Text& call) {
        startServer(capabilities);
        show(title, body, aps, options);
        EXPECT_THAT(transcript.take(2), ElementsAre(call, "Fake"));
    };
    shows({"actions", "body", "body-markup"}, "<", "&<>", {{"sound", "x"}}, banner | sound,
          "<|&amp;&lt;&gt;|Öffnen|1 transient sound");
    const Values criticalSound{{"critical", 1}, {"name", "x"}};
    shows({"body"}, "T", "&<>\n", {{"interruption-level", "critical"}, {"sound", criticalSound}},
          banner | list | sound, "T|&<>\n||1 sound");
    shows({"body"}, "T", "b", {{"interruption-level", "time-sensitive"}}, banner | list, "T|b||1");
    shows({"body"}, "T", "b", {{"interruption-level", "passive"}}, banner | list, "T|b||0");
    shows({"sound"}, "", "b\n" + Text(95, 'b'), {}, banner | list, "App: b " + Text(93, 'b') + "…|||1");
    shows({}, "T", "<", {{"sound", "x"}}, list, "T|<||0");
    shows({"body"}, "\0\n\u202e"s, "\xff\xe2\x82(\uffff\x1b\xc3", {}, list,
          "App|\ufffd\ufffd(\ufffd\ufffd||0");
}

TEST_F(NotificationServerTest, HandlesOnlyTheCurrentServer)
{
    std::atomic<int> availabilityCount = 0;
    mainQueue.async([&] { server.onAvailable([&] { ++availabilityCount; }); });
    for (const char* title : {"too early", "still too early"}) {
        show(title);
        EXPECT_THAT(transcript.take(1), ElementsAre("not shown")) << title;
    }
    startServer({"silent"});
    show("unheard");
    mainQueue.async([this] { timers.advance(Linux::Bus::NotificationServer::answerTime); });
    EXPECT_THAT(transcript.take(1), ElementsAre("not shown"));
    fake->heldCapabilities.returnResults(Strings{"body"});
    show("of the first");
    EXPECT_THAT(transcript.take(2), ElementsAre("of the first|||1", "Fake"));
    startServer({"body"});
    fake->end({1}, dismissed);
    for (std::size_t id = 1; id <= Linux::Bus::NotificationServer::maximumShownCount + 1; ++id)
        show(std::to_string(id));
    transcript.take(2 * Linux::Bus::NotificationServer::maximumShownCount + 2);
    FakeServer liar({}, transcript, "test.Liar");
    liar.end({2, 3, 4, 5}, tapped, bus.connection().getUniqueName());
    liar.bus->requestName(ServiceName("test.Flush"));
    fake->object->emitSignal("ActionInvoked").onInterface(serverName).withArguments("no number"s);
    fake->end({3}, expired);
    fake->end({6}, closed);
    fake->end({1, 999, 2, 3, 6}, tapped);
    fake->end({2, 4, 5}, dismissed);
    EXPECT_THAT(transcript.take(3), ElementsAre("tap 2", "tap 4", "tap 5"));
    fake->nextId = 7; // A server may reuse the id of a notification that has ended.
    show("7 again");
    transcript.take(2);
    fake->end({7}, tapped);
    EXPECT_THAT(transcript.take(1), ElementsAre("tap 7 again"));
    EXPECT_EQ(availabilityCount, 2);
    log.takeLines();
    const auto isLogged = ElementsAre(testing::EndsWith("does not show notifications: test.No"));
    for (const bool isRepeated : {false, true, false}) {
        fake->behavior = FakeServer::Behavior::refusing;
        show("refused");
        EXPECT_THAT(transcript.take(2), ElementsAre("refused|||1", "not shown"));
        EXPECT_TRUE(isRepeated ? log.takeLines().empty() : testing::Value(log.takeLines(), isLogged));
        if (isRepeated) {
            fake->behavior = FakeServer::Behavior::accepting;
            show("accepted");
            transcript.take(2);
        }
    }
    startServer({"body"});
    fake->behavior = FakeServer::Behavior::refusing;
    show("refused");
    transcript.take(2);
    EXPECT_THAT(log.takeLines(), isLogged) << "by another server";
    show("in silence", {}, {{"sound", "x"}}, sound);
    EXPECT_THAT(transcript.take(1), ElementsAre("not shown"));
    fake->behavior = FakeServer::Behavior::slow;
    show("late");
    EXPECT_THAT(transcript.take(1), ElementsAre("late|||1"));
    mainQueue.async([this] { timers.advance(Linux::Bus::NotificationServer::answerTime); });
    EXPECT_THAT(transcript.take(1), ElementsAre("not shown"));
    fake->held.returnResults(777);
    EXPECT_THAT(transcript.take(1), ElementsAre("close 777"));
}

TEST_F(NotificationServerTest, SendsNothingLateOrToTheNextServer)
{
    startServer({"silent"});
    show("unsent");
    fake->bus->releaseName(ServiceName(serverName));
    EXPECT_THAT(transcript.take(1), ElementsAre("not shown")) << "at once, without a server";
    {
        const FakeServer next({"body", "body-markup"}, transcript);
        EXPECT_THAT(transcript.take(1), ElementsAre("capabilities?"));
        fake->heldCapabilities.returnResults(Strings{"body"});
        fake->bus->requestName(ServiceName("test.Flush")); // Returns after the bus has forwarded the reply.
        show("answered after the late reply");
        transcript.take(2);
        show("T", "<");
        EXPECT_THAT(transcript.take(2), ElementsAre("T|&lt;||1", "Fake"));
    }
    for (const bool isLate : {false, true}) {
        SCOPED_TRACE(isLate);
        startServer({"body"});
        fake->behavior = FakeServer::Behavior::slow;
        show("first");
        EXPECT_THAT(transcript.take(1), ElementsAre("first|||1"));
        if (isLate) {
            mainQueue.async([this] { timers.advance(Linux::Bus::NotificationServer::answerTime); });
            EXPECT_THAT(transcript.take(1), ElementsAre("not shown"));
        }
        fake->bus->releaseName(ServiceName(serverName));
        FakeServer next({"actions"}, transcript);
        EXPECT_THAT(transcript.take(1), ElementsAre("capabilities?"));
        fake->held.returnResults(1U);
        fake->bus->requestName(ServiceName("test.Flush"));
        if (!isLate) {
            EXPECT_THAT(transcript.take(1), testing::SizeIs(1)) << "shown by the former server";
        }
        next.end({1}, tapped);
        next.nextId = 2;
        show("second");
        EXPECT_THAT(transcript.take(2), ElementsAre("second||Öffnen|1", "Fake"));
    }
}

} // namespace
