#include "Core/APIClient.h"
#include "Core/APIError.h"
#include "Core/ConfigurationManager.h"
#include "Core/Logger.h"
#include "Platform/Encoding.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/Network/CurlURLSession.h"
#include "Platform/NotificationCenter.h"
#include "Platform/OutcomeRecorder.h"
#include "Platform/Push/WebPush.h"
#include "Platform/SystemClock.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tools/Backend/PushSender.h"
#include "Tools/Backend/TestBackend.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <future>

using namespace Core;
using namespace Platform;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::StartsWith;

namespace {

/// A device configured for a real backend, with the same client as the app.
class BackendTest : public testing::Test {
protected:
    BackendTest()
    {
        ::setenv("SSL_CERT_FILE", backend.certificateAuthority().c_str(), 1);
        ::setenv("no_proxy", "*", 1);
        session = std::make_unique<Network::CurlURLSession>();
        folder.write("managed.json", fmt::format(R"({{"base_domain": "{}/mdm", "api_key": "canary-key",
            "device_id": "DEV-1"}})",
                                                 backend.baseURL()));
        manager->updateConfigurationFromMDM();
        log.takeLines();
    }
    ~BackendTest() override { ::unsetenv("SSL_CERT_FILE"); }

    [[nodiscard]] APIClient client() { return {*manager, *session, JSONDecoder(), JSONEncoder(), logger}; }

    /// Sends `count` requests at once, each in its own task. Returns each status code or error.
    std::vector<std::string> post(const APIClient& client, const std::string& path, int count = 1)
    {
        std::vector<std::future<std::string>> outcomes;
        for (int i = 0; i < count; ++i) {
            auto outcome = std::make_shared<std::promise<std::string>>();
            outcomes.push_back(outcome->get_future());
            spawn(queue, settle(outcome, client.post(path, Data{std::byte{'{'}, std::byte{'}'}})));
        }
        std::vector<std::string> texts;
        for (auto& outcome : outcomes)
            texts.push_back(outcome.get());
        return texts;
    }

    TemporaryFolder folder;
    TestBackend backend{{.folder = folder.path()}};
    ManualScheduler scheduler;
    RecordingUnifiedLog log;
    Logger logger{std::make_unique<OSLogSink>(log), "com.example"};
    NotificationCenter center;
    SystemClock clock;
    AdapterLog adapterLog{log, "test"};
    Linux::DeviceDefaults defaults{{folder.path("state"), {.files = {folder.path("managed.json")}}},
                                   Storage::SQLiteUserDefaults::Access::readWrite,
                                   clock,
                                   adapterLog};
    OutcomeRecorder recorder{{defaults.standard(), clock, scheduler.mainQueue, scheduler}};
    std::shared_ptr<ConfigurationManager> manager = std::make_shared<ConfigurationManager>(
        ConfigurationManager::Ports{logger, defaults, center, scheduler.mainQueue, scheduler.utilityQueue,
                                    scheduler, clock, recorder});
    Linux::WorkerQueue queue{"tasks", Linux::WorkerQueue::Priority::default_};
    std::unique_ptr<Network::CurlURLSession> session;

private:
    static Task<void> settle(std::shared_ptr<std::promise<std::string>> outcome,
                             Task<APIClient::Response> task)
    {
        std::string text;
        try {
            const auto [body, response] = co_await std::move(task);
            text = std::to_string(response.statusCode);
        } catch (const APIError& error) {
            text = error.what();
        }
        outcome->set_value(text);
    }
};

TEST_F(BackendTest, RequestsCarryTheStoredAddressAndCredentials)
{
    EXPECT_THAT(post(client(), "/apis/mdm/backend/a%2Fb/%2e%2e%2f/%41"), ElementsAre("200"));
    const auto requests = backend.takeRequests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].target, "/mdm/apis/mdm/backend/a%2Fb/%2e%2e%2f/%41");
    EXPECT_EQ(requests[0].body, "{}");
    EXPECT_THAT(requests[0].headerFields, AllOf(Contains(Pair("Authorization", "Bearer canary-key")),
                                                Contains(Pair("X-Device-Id", "DEV-1")),
                                                Contains(Pair("Content-Type", "application/json")),
                                                Contains(Pair("Accept", "application/json")),
                                                Not(Contains(Pair("X-QV-OrgId", testing::_))),
                                                Not(Contains(Pair("Cookie", testing::_)))));
    EXPECT_THAT(log.takeLines(), IsEmpty());
}

TEST_F(BackendTest, EachHostileResponseIsOneErrorAndOneLogLine)
{
    using Ending = TestBackend::Ending;
    struct Case {
        TestBackend::Reply reply;
        const char* outcome;
        const char* line;
    };
    const Case cases[] = {
        {{.status = 500, .body = "\xff"},
         "HTTP error: 500",
         "API HTTP error | context={responseBody=No response body, statusCode=500}"},
        {{.status = 403, .body = "no"},
         "HTTP error: 403",
         "API HTTP error | context={responseBody=no, statusCode=403}"},
        {{.ending = Ending::closedBefore}, "Network error: ", "domain=NSURLErrorDomain, code=-1005, "},
        {{.body = std::string(1000, 'x'), .ending = Ending::truncated}, "Network error: ", "code=-1005, "},
        {{.ending = Ending::endless}, "Network error: ", "code=-1103, "},
        {{.status = 302, .headerFields = {{"Location", "http://localhost:1/"}}},
         "Network error: ",
         "code=-1022, "},
        {{.status = 302, .headerFields = {{"Location", "/mdm/a"}}}, "Network error: ", "code=-1007, "},
    };
    for (const Case& row : cases) {
        backend.setReply("/mdm/a", row.reply);
        EXPECT_THAT(post(client(), "a"), ElementsAre(StartsWith(row.outcome)));
        EXPECT_THAT(log.takeLines(), ElementsAre(AllOf(HasSubstr(row.line), Not(HasSubstr("canary")))))
            << row.line;
    }
    EXPECT_THAT(post(client(), "b"), ElementsAre("200")) << "the client must still work";
}

TEST_F(BackendTest, RedirectToAnotherHostDropsCredentials)
{
    backend.setReply(
        "/mdm/a",
        {.status = 307,
         .headerFields = {{"Location", fmt::format("https://127.0.0.1:{}/other", backend.port())}}});
    EXPECT_THAT(post(client(), "a"), ElementsAre("200"));
    const auto requests = backend.takeRequests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[1].target, "/other");
    EXPECT_THAT(requests[1].headerFields, AllOf(Not(Contains(Pair("Authorization", testing::_))),
                                                Not(Contains(Pair("X-Device-Id", testing::_)))));
}

TEST_F(BackendTest, ClientServesConcurrentTasks)
{
    constexpr int taskCount = 64;
    const APIClient shared = client();
    const auto outcomes = post(shared, "a", taskCount);
    EXPECT_EQ(std::count(outcomes.begin(), outcomes.end(), "200"), taskCount);
    EXPECT_EQ(backend.takeRequests().size(), static_cast<std::size_t>(taskCount));
}

TEST_F(BackendTest, PushesAreEncryptedAndRefusalsReported)
{
    const std::string subscription =
        Push::webPushSubscription(backend.baseURL() + "/push?x=1", Push::WebPushKeys::generate());
    Data bytes(subscription.size());
    std::memcpy(bytes.data(), subscription.data(), bytes.size());
    const PushRoutes routes{"/nowhere/push.sock", backend.certificateAuthority()};
    pushToDevice(hexadecimalText(bytes), "canary", routes);
    const auto requests = backend.takeRequests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].method + " " + requests[0].target, "POST /push?x=1");
    EXPECT_THAT(requests[0].headerFields,
                AllOf(Contains(Pair("Content-Encoding", "aes128gcm")), Contains(Pair("TTL", "86400"))));
    EXPECT_THAT(requests[0].body, Not(HasSubstr("canary")));
    for (const int status : {302, 404, 503}) {
        backend.setReply("*", {.status = status});
        EXPECT_THAT([&] { pushToDevice(hexadecimalText(bytes), "{}", routes); },
                    testing::ThrowsMessage<std::runtime_error>(
                        HasSubstr(fmt::format("answered with status {}", status))));
    }
}

/// No server is listening, so the error names the address to which the push was sent.
TEST(PushSenderTest, SendsToTheAddressThatTheTokenNames)
{
    const std::string subscription =
        Push::webPushSubscription("https://127.0.0.1:1/x", Push::WebPushKeys::generate());
    const std::pair<std::string, const char*> rows[] = {
        {std::string(32, '\xab'), "/nowhere/push.sock"},
        {"{" + std::string(31, '\xab'), "/nowhere/push.sock"},
        {"{}" + std::string(30, ' ') + "x", "neither a Web Push subscription nor"},
        {std::string(31, '\xab'), "neither a Web Push subscription nor"},
        {R"({"endpoint": "https://127.0.0.1:1/"})", "no object \"keys\""},
        {subscription, "127.0.0.1:1 cannot be reached"},
        {Push::webPushSubscription("https://user@127.0.0.1:1/x", Push::WebPushKeys::generate()),
         "contains a user name"},
        {Push::webPushSubscription("ftp://127.0.0.1:1/x", Push::WebPushKeys::generate()),
         "is not a URL that begins with"},
    };
    const PushRoutes routes{"/nowhere/push.sock", {}};
    for (const auto& [bytes, reason] : rows) {
        Data token(bytes.size());
        std::memcpy(token.data(), bytes.data(), bytes.size());
        EXPECT_THAT([&] { pushToDevice(hexadecimalText(token), "{}", routes); },
                    testing::ThrowsMessage<std::runtime_error>(HasSubstr(reason)));
    }
    TestBackend::Request upload{"POST", "/devices/D/token", {}, R"({"token": "ab"})"};
    EXPECT_EQ(uploadedToken(upload), "ab");
    for (const auto& [method, target, body] :
         {std::tuple("GET", "/token", R"({"token": "ab"})"),
          std::tuple("POST", "/tokens", R"({"token": "ab"})"),
          std::tuple("POST", "/token", R"({"token": 1})"), std::tuple("POST", "/token", "[]")}) {
        upload = {method, target, {}, body};
        EXPECT_EQ(uploadedToken(upload), std::nullopt) << method << target << body;
    }
    for (const char* token : {"", "7", "zz"})
        EXPECT_THAT([&] { pushToDevice(token, "{}", routes); },
                    testing::ThrowsMessage<std::runtime_error>(HasSubstr("neither")));
}

} // namespace
