#include "Platform/Linux/UnifiedPushService.h"

#include "Platform/Linux/SessionBus.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Tests/Fakes/FakeDistributor.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tools/Backend/WebPushSender.h"

#include <gmock/gmock.h>

using namespace Platform;
using namespace Platform::Linux;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;
using Dictionary = FakeDistributor::Dictionary;
using Script = FakeDistributor::Script;
using Seconds = std::chrono::seconds;

namespace {

/// The application among its distributors, and what happens there, line by line.
struct Stage final : PushServiceListener {
    ~Stage() override { stop(); }
    void start(Seconds answerTime = Seconds(20), const std::string& preferred = "")
    {
        bus = std::make_unique<SessionBus>(adapterLog);
        queue = std::make_unique<WorkerQueue>("main", WorkerQueue::Priority::default_);
        const UnifiedPushService::Ports ports{*bus, store, *queue, adapterLog};
        const UnifiedPushService::Settings settings{FakeDistributor::application, "Tests", preferred,
                                                    answerTime};
        service = std::make_unique<UnifiedPushService>(ports, settings);
        bus->start();
        queue->async([this] { service->start(*this); });
    }
    void stop()
    {
        if (bus)
            bus->stop();
        queue.reset();
        service.reset();
        bus.reset();
    }
    void registerDevice()
    {
        queue->async([this] { service->registerDevice(); });
    }
    void put(const std::string& suffix, const Script& script = {})
    {
        distributors[suffix].reset();
        const auto tell = [=, this](const std::string& line) { say(suffix + " " + line); };
        distributors[suffix] = std::make_unique<FakeDistributor>(suffix, tell, script);
    }
    void say(const std::string& line)
    {
        const std::lock_guard lock(mutex);
        lines.push_back(line);
        hasNews.notify_one();
    }
    /// The rest of the next line that begins so.
    std::string after(const std::string& beginning)
    {
        std::unique_lock lock(mutex);
        while (hasNews.wait_for(lock, Seconds(20), [this] { return !lines.empty(); })) {
            const std::string line = std::exchange(lines.front(), {});
            lines.pop_front();
            if (line.starts_with(beginning))
                return line.substr(beginning.size());
        }
        return "(nothing)";
    }
    void didRegister(const Data& token) override
    {
        say("token " + std::string(reinterpret_cast<const char*>(token.data()), token.size()));
    }
    void didFailToRegister(const Error& error) override
    {
        say("error " + std::to_string(error.code) + " " + error.localizedDescription);
    }
    void didReceive(const PropertyList::Dictionary& payload, Completion theCompletion) override
    {
        completion = std::move(theCompletion);
        say("payload " + payload.at("n").description());
    }

    FakeUserDefaults store;
    RecordingUnifiedLog log;
    AdapterLog adapterLog{log, "test"};
    std::mutex mutex;
    std::condition_variable hasNews;
    std::deque<std::string> lines;
    Completion completion;
    std::map<std::string, std::unique_ptr<FakeDistributor>> distributors;
    std::unique_ptr<SessionBus> bus;
    std::unique_ptr<WorkerQueue> queue;
    std::unique_ptr<UnifiedPushService> service;
};

Bytes encrypted(const std::string& subscription, const std::string& payload)
{
    const std::string message = encryptWebPush(WebPushSubscription::parse(subscription), payload);
    return {message.begin(), message.end()};
}

TEST(UnifiedPushServiceTest, IsTheSameReceiverWhoeverComesAndGoes)
{
    Stage stage;
    stage.start();
    stage.registerDevice();
    EXPECT_THAT(stage.after("error 1"), HasSubstr("No push distributor"));
    stage.put("b", {.answer = {{"success", "NEW_ENDPOINT"}}, .version = "1"});
    const std::string token = stage.after("b registers ");
    const std::string subscription = stage.after("token ");
    stage.distributors["b"]->call("Message", token, encrypted(subscription, R"({"n":1})"), std::string("id"));
    EXPECT_EQ(stage.after("payload "), "1");
    stage.put("b", {.followUp = "Nothing"});
    EXPECT_EQ(stage.after("b registers "), token);
    stage.stop();
    stage.completion(std::nullopt);
    stage.put("a");
    stage.start();
    EXPECT_EQ(stage.after("b registers "), token);
    stage.registerDevice();
    EXPECT_EQ(stage.after("token "), subscription);
    stage.stop();
    stage.start(Seconds(20), "a");
    EXPECT_EQ(stage.after("a registers "), token);
}

TEST(UnifiedPushServiceTest, AnswersWhatIsCommittedOrUselessAndIgnoresWhatIsNotForIt)
{
    Stage stage;
    for (const char* suffix : {"a", "b"})
        stage.put(suffix);
    stage.start();
    stage.registerDevice();
    const std::string token = stage.after("a registers ");
    const std::string subscription = stage.after("token ");
    EXPECT_EQ(stage.after("a answered"), " ");
    const Bytes good = encrypted(subscription, R"({"n":1})");
    struct Case {
        sdbus::Variant token;
        const char* field;
        sdbus::Variant content;
        const char* answer = "a answered ";
        const char* sender = "a";
    };
    const Case cases[] = {
        {token, "message", good, "payload 1"},
        {token, "message", Bytes(4096), "a answered 7"},
        {token, "message", encrypted(subscription, "[]"), "a answered 7"},
        {token, "message", Bytes(4097)},
        {token, "message", "text"},
        {token, "nothing", "text"},
        {1, "message", good},
        {"other", "message", good},
        {token, "message", good, "b answered ", "b"},
        {token, "endpoint", "http://127.0.0.1.example/"},
        {token, "endpoint", "http://localhost@b.example/"},
        {token, "endpoint", "https://a/" + std::string(991, 'a')},
    };
    for (const Case& row : cases) {
        const char* method = std::string(row.field) == "endpoint" ? "NewEndpoint" : "Message";
        const Dictionary arguments{{"token", row.token}, {row.field, row.content}, {"id", "7"}};
        stage.distributors[row.sender]->call(method, arguments);
        EXPECT_EQ(stage.after(""), row.answer) << "row " << &row - cases;
    }
    EXPECT_THAT(stage.log.takeLines(), testing::SizeIs(4));
    stage.completion("no room");
    EXPECT_EQ(stage.after(""), "a answered 7");
    EXPECT_THAT(stage.log.takeLines(), testing::ElementsAre(HasSubstr("no room")));
}

TEST(UnifiedPushServiceTest, SaysWhyThereIsNoTokenAndBringsItLater)
{
    const auto failure = [](const char* reason) {
        return Script{.answer = {{"success", "REGISTRATION_FAILED"}, {"reason", reason}}};
    };
    const std::pair<Script, const char*> cases[] = {
        {failure("INTERNAL_ERROR"), "^3 .*error of its own"},
        {failure("NETWORK"), "^4 .*network"},
        {failure("ACTION_REQUIRED"), "^5 .*Open it"},
        {failure("VAPID_REQUIRED"), "^6 .*VAPID"},
        {failure("UNAUTHORIZED"), "^6 .*sandbox"},
        {failure("a\nb"), "^6 .*the reason \"a b\""},
        {{{{"success", "REGISTRATION_REFUSED"}}, "Nothing", "1"}, "^6 .*refuses"},
        {{.answer = {{"success", 1}}, .followUp = "Nothing"}, "^3 .*something else"},
        {{.followUp = "Unregistered"}, "^6 .*ended"},
        {{.version = "3"}, "^3 .*no interface"},
        {{.answer = {}}, "^3 .*does not answer"},
    };
    for (const auto& [script, words] : cases) {
        Stage stage;
        stage.put("a", script);
        stage.start(Seconds(1));
        stage.registerDevice();
        EXPECT_THAT(stage.after("error "), testing::ContainsRegex(words));
        stage.put("a");
        EXPECT_THAT(stage.after("token "), HasSubstr(FakeDistributor::endpoint)) << words;
    }
}

} // namespace
