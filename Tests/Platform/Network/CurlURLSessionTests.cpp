#include "Platform/Network/ResponseHeader.h"
#include "Tests/Fakes/Bytes.h"
#include "Tests/Platform/Network/CurlURLSessionTest.h"

#include <csignal>
#include <latch>
#include <map>
#include <optional>
#include <set>
#include <thread>

using namespace Platform;
using namespace std::chrono_literals;
using namespace testing;

namespace {

using Ending = TestBackend::Ending;
using Reply = TestBackend::Reply;

TEST_F(CurlURLSessionTest, ReplyBecomesTheOutcome)
{
    struct Case {
        Reply reply;
        /// If absent, the outcome has the status and the body of the reply.
        std::optional<Code> error = {};
        std::chrono::seconds timeout = 20s;
    };
    constexpr std::size_t limit = URLSession::maximumBodyBytes;
    const std::string large(90'000, 'x');
    const Case cases[] = {
        {{.status = 302, .body = "x", .delay = 1h, .ending = Ending::dripping}, {}, 5s},
        {{.status = 302, .headerFields = {{"Location", ""}}}},
        {{.status = 304, .headerFields = {{"Location", "/other"}}, .body = ""}},
        {{.status = 404, .body = "\xff\xfe\x80"}},
        {{.body = std::string(limit, 'x')}},
        {{.body = std::string(limit + 1, 'x')}, Code::dataLengthExceedsMaximum},
        {{.status = 302, .headerFields = {{"Location", "/other"}}, .ending = Ending::endless},
         Code::dataLengthExceedsMaximum},
        // All together, or one of them, is too long.
        {{.headerFields = {{"A", large}, {"B", large}, {"C", large}}}, Code::dataLengthExceedsMaximum},
        {{.headerFields = {{"A", large + large}}}, Code::dataLengthExceedsMaximum},
        {{.body = "0123456789", .ending = Ending::truncated}, Code::networkConnectionLost},
        {{.ending = Ending::closedBefore}, Code::networkConnectionLost},
        {{.headerFields = {{"Content-Encoding", "gzip"}}, .body = "not gzip"}, Code::cannotDecodeContentData},
        {{.delay = 1h}, Code::timedOut, 1s},
        {{.body = "The limit is reduced to a day."}, {}, std::chrono::seconds::max()},
        // In total, it takes longer than the limit.
        {{.body = "slowly", .delay = 400ms, .ending = Ending::dripping}, {}, 2s},
        {{.body = "slowly", .delay = 1h, .ending = Ending::dripping}, Code::timedOut, 1s}};
    Line line;
    line.backend.setReply("/patient", {.delay = 1h});
    const auto patient = line.get("/patient", 300s);
    for (const Case& row : cases) {
        SCOPED_TRACE(row.reply.status);
        const std::string path = "/" + std::to_string(&row - cases);
        line.backend.setReply(path, row.reply);
        const Outcome outcome = line.get(path, row.timeout).get();
        EXPECT_EQ(result(outcome), row.error ? number(*row.error) : row.reply.status) << description(outcome);
        if (const auto* response = std::get_if<URLResponse>(&outcome))
            EXPECT_EQ(response->body, bytesOf(row.reply.body));
        else
            EXPECT_THAT(description(outcome), HasSubstr("localhost:" + std::to_string(line.backend.port())));
    }
    EXPECT_EQ(patient.wait_for(0s), std::future_status::timeout) << "each request has its own time limit";
}

TEST_F(CurlURLSessionTest, FollowsRedirectsToHttpsOnly)
{
    const auto insecure = number(Code::appTransportSecurityRequiresSecureConnection);
    // Method, status, location and result; then the method, target, body and number of credentials of the
    // last request.
    const std::tuple<const char*, int, std::string, std::int64_t, std::string, int> cases[] = {
        {"POST", 302, "to", 200, "GET/to", 2},
        {"PUT", 307, "{same}/to", 200, "PUT/tobody", 2},
        {"POST", 307, "{other}/back", 200, "POST/tobody", 0},
        {"POST", 302, "http://localhost/", insecure, "POST/frombody", 2},
        {"POST", 302, "https://[", number(Code::badURL), "POST/frombody", 2}};
    Line line;
    line.backend.setReply("/back", {.status = 307, .headerFields = {{"Location", line.expand("{same}/to")}}});
    for (const auto& [method, status, location, expected, last, credentialCount] : cases) {
        line.backend.setReply("/from", {.status = status,
                                        .headerFields = {{"Location", line.expand(location)}},
                                        .body = "to be dropped"});
        const Outcome outcome = line.start({.url = line.backend.baseURL() + "/from",
                                            .httpMethod = method,
                                            .headerFields = {{"authorization", "secret"},
                                                             {"X-Device-ID", "secret"},
                                                             {"Range", "bytes=0-0"}},
                                            .httpBody = bytesOf("body")})
                                    .get();
        EXPECT_EQ(result(outcome), expected) << location;
        EXPECT_EQ(description(outcome).find("not https") != std::string::npos, expected == insecure);
        EXPECT_THAT(description(outcome), Not(HasSubstr("secret")));
        if (expected == 200) {
            EXPECT_EQ(std::get<URLResponse>(outcome).body, bytesOf("{}"));
        }
        const auto request = line.backend.takeRequests().back();
        EXPECT_EQ(request.method + request.target + request.body, last);
        EXPECT_THAT(request.headerFields, Contains(Pair(_, "secret")).Times(credentialCount));
    }
}

/// Returns the fields, except those that depend on the version of libcurl, as lines "Name: value".
std::string linesOf(const std::multimap<std::string, std::string>& fields)
{
    std::string text;
    for (const auto& [name, value] : fields)
        text += name.starts_with("Accept") ? "" : name + ": " + value + "\n";
    return text;
}

TEST_F(CurlURLSessionTest, SendsMethodTargetAndFieldsAsRequested)
{
    const std::string target = "/%41%2F//%2e%2E%2f..%2Fc/a/./../b/!$&'()*+,;=:@?q=%2F/../%c3";
    const std::string large(3'000'000, 'x');
    // The method, the body and the header line with its length.
    const std::tuple<const char*, std::optional<std::string>, const char*> cases[] = {
        {"GET", {}, ""},
        {"HEAD", {}, ""},
        {"DELETE", {}, ""},
        {"POST", {}, "Content-Length: 0\n"},
        {"POST", std::string("a\0b", 3), "Content-Length: 3\n"},
        {"POST", large, "Content-Length: 3000000\n"},
        {"PUT", {}, "Content-Length: 0\n"},
        {"PUT", large, "Content-Length: 3000000\n"},
        {"PATCH", "change", "Content-Length: 6\n"}};
    for (const auto& [method, body, length] : cases) {
        SCOPED_TRACE(method);
        Line line;
        line.backend.setReply(
            "*",
            {.headerFields = {{"X-Twice", "a"}, {"X-Twice", "a"}, {"X-Void", ""}, {"X-Folded", "a\r\n  b"}}});
        const std::string host = "localhost:" + std::to_string(line.backend.port());
        URLRequest request{.url = "https://user:p@ssword@" + host + target + "#fragment",
                           .httpMethod = method,
                           .headerFields = {{"X-Given", " as it is"},
                                            {"Host", "evil"},
                                            {"Content-Length", "1"},
                                            {"Transfer-Encoding", "chunked"}}};
        if (body)
            request.httpBody = bytesOf(*body);
        std::promise<Outcome> first;
        std::promise<std::future<Outcome>> second;
        line.session->start(request, [&](Outcome completed) {
            first.set_value(std::move(completed));
            second.set_value(line.get("/second"));
        });
        const Outcome outcome = first.get_future().get();
        ASSERT_EQ(second.get_future().get().wait_for(20s), std::future_status::ready)
            << "started by a completion";
        ASSERT_EQ(result(outcome), 200) << description(outcome);
        EXPECT_THAT(std::get<URLResponse>(outcome).http->headerFields,
                    IsSupersetOf({Pair("X-Twice", "a, a"), Pair("X-Void", ""), Pair("X-Folded", "a b")}));

        const auto requests = line.backend.takeRequests();
        ASSERT_THAT(requests, SizeIs(2));
        const std::string common = "Host: " + host + "\nUser-Agent: quorvane-mdm\n";
        EXPECT_EQ(requests[0].method + requests[0].target, method + target);
        EXPECT_EQ(requests[0].body, body.value_or(""));
        EXPECT_EQ(linesOf(requests[0].headerFields), length + common + "X-Given: as it is\n");
        EXPECT_EQ(requests[1].method + requests[1].target + requests[1].body, "GET/second");
        EXPECT_EQ(linesOf(requests[1].headerFields), common);
    }
}

TEST_F(CurlURLSessionTest, RepeatsTheWholeBodyWhenAReusedConnectionIsClosed)
{
    Line line;
    line.backend.setReply("/put", {.ending = Ending::closedBefore});
    line.backend.onRequest([&](const TestBackend::Request& request) {
        if (request.method == "PUT")
            line.backend.setReply("/put", {});
    });
    EXPECT_EQ(result(line.get("/first").get()), 200);
    const URLRequest request{
        .url = line.backend.baseURL() + "/put", .httpMethod = "PUT", .httpBody = bytesOf("body")};
    EXPECT_EQ(result(line.start(request).get()), 200);
    const auto requests = line.backend.takeRequests();
    ASSERT_THAT(requests, SizeIs(3));
    EXPECT_EQ(requests[1].body + " " + requests[2].body, "body body");
}

TEST_F(CurlURLSessionTest, CompletesManyConcurrentRequestsOnItsThread)
{
    constexpr int count = 1000;
    std::latch done(count);
    int successCount = 0;
    std::set<std::thread::id> threads;
    Line line;
    for (int index = 0; index < count; ++index)
        line.session->start({.url = line.backend.baseURL()}, [&](const Outcome& outcome) {
            successCount += result(outcome) == 200 ? 1 : 0;
            threads.insert(std::this_thread::get_id());
            sigset_t blocked{};
            ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
            EXPECT_TRUE(::sigismember(&blocked, SIGTERM) == 1 && ::sigismember(&blocked, SIGPIPE) == 1);
            done.count_down();
        });
    done.wait();
    EXPECT_EQ(successCount, count);
    EXPECT_THAT(threads, AllOf(SizeIs(1), Not(Contains(std::this_thread::get_id()))));
    EXPECT_THAT(line.backend.takeRequests(), SizeIs(count));
}

TEST_F(CurlURLSessionTest, FollowsSixteenRedirectsWithLargeHeaders)
{
    Line line;
    for (int step = 0; step <= 16; ++step) {
        const std::string next = "/" + std::to_string(step + 1);
        line.backend.setReply(
            "/" + std::to_string(step),
            {.status = 302, .headerFields = {{"Location", next}, {"X", std::string(50'000, 'x')}}});
    }
    EXPECT_EQ(result(line.get("/1").get()), 200);
    EXPECT_EQ(result(line.get("/0").get()), number(Code::httpTooManyRedirects));
}

TEST_F(CurlURLSessionTest, CancelsPendingRequestsWhenDestroyed)
{
    std::latch arrived(2);
    Line line;
    line.backend.setReply("*", {.delay = 1h});
    line.backend.onRequest([&](const TestBackend::Request&) { arrived.count_down(); });
    std::promise<Outcome> first;
    std::promise<Outcome> startedDuringDestruction;
    URLSession& session = *line.session;
    session.start({.url = line.backend.baseURL() + "/first"}, [&](Outcome outcome) {
        first.set_value(std::move(outcome));
        session.start({.url = line.backend.baseURL()},
                      [&](Outcome last) { startedDuringDestruction.set_value(std::move(last)); });
    });
    auto second = line.get("/second");
    arrived.wait();
    line.session.reset();
    EXPECT_EQ(result(first.get_future().get()), number(Code::cancelled));
    EXPECT_EQ(result(startedDuringDestruction.get_future().get()), number(Code::cancelled));
    EXPECT_EQ(result(second.get()), number(Code::cancelled));
}

} // namespace
