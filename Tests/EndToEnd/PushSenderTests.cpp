#include "Platform/Encoding.h"
#include "Platform/Push/WebPush.h"
#include "Tests/Fakes/Bytes.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tools/Backend/PushSender.h"
#include "Tools/Backend/TestBackend.h"
#include "Tools/Tour/ChildProcess.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

using namespace Platform;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;

namespace {

std::string subscription(const std::string& endpoint)
{
    return Push::webPushSubscription(endpoint, Push::WebPushKeys::generate());
}

void expectRefusal(const std::string& token, const std::string& reason, const PushRoutes& routes)
{
    EXPECT_THAT([&] { pushToDevice(token, "{}", routes); },
                testing::ThrowsMessage<std::runtime_error>(HasSubstr(reason)));
}

TEST(PushSenderTest, EncryptsPushesAndReportsRefusals)
{
    const TemporaryFolder folder;
    TestBackend backend{{.folder = folder.path()}};
    const std::string token = hexadecimalText(bytesOf(subscription(backend.baseURL() + "/a+b;c?x=1,2")));
    const PushRoutes routes{"/nowhere/push.sock", backend.certificateAuthority()};
    pushToDevice(token, "canary", routes);
    const auto requests = backend.takeRequests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].method + " " + requests[0].target, "POST /a+b;c?x=1,2");
    EXPECT_THAT(requests[0].headerFields,
                AllOf(Contains(Pair("Content-Encoding", "aes128gcm")), Contains(Pair("TTL", "86400"))));
    EXPECT_THAT(requests[0].body, Not(HasSubstr("canary")));
    EXPECT_FALSE(uploadedToken({"PUT", "/token", {}, R"({"token": "ab"})"}));
    for (const int status : {302, 404, 503}) {
        backend.setReply("*", {.status = status});
        expectRefusal(token, fmt::format("answered with status {}", status), routes);
    }
}

/// No server is listening, so the error names the address to which the push was sent.
TEST(PushSenderTest, SendsToTheAddressThatTheTokenNames)
{
    const std::pair<std::string, const char*> rows[] = {
        {std::string(32, '\xab'), "/nowhere/push.sock"},
        {"{" + std::string(31, '\xab'), "/nowhere/push.sock"},
        {"{}" + std::string(30, ' ') + "x", "neither a Web Push subscription nor"},
        {std::string(31, '\xab'), "neither a Web Push subscription nor"},
        {R"({"endpoint": "https://127.0.0.1:1/"})", "no object \"keys\""},
        {subscription("https://127.0.0.1:1/x"), "127.0.0.1:1 cannot be reached"},
        {subscription("https://user@127.0.0.1:1/x"), "contains a user name"},
        {subscription("ftp://127.0.0.1:1/x"), "is not a URL that begins with"},
    };
    const PushRoutes routes{"/nowhere/push.sock", {}};
    for (const auto& [bytes, reason] : rows)
        expectRefusal(hexadecimalText(bytesOf(bytes)), reason, routes);
}

TEST(TestBackendTest, SendsNoBodyWithAStatusThatHasNoneAndForgetsRequestsThatAreCutOff)
{
    const TemporaryFolder folder;
    TestBackend backend{{.folder = folder.path()}};
    for (const int status : {204, 304}) {
        backend.setReply("*", {.status = status, .body = "body"});
        const std::string authority = backend.certificateAuthority(), url = backend.baseURL();
        ChildProcess curl({"curl", "-siw%{certs}", "--cacert", authority, url, "--next", "-sm0.5", "--cacert",
                           authority, "-dx", "-HContent-Length: 9", url},
                          {});
        EXPECT_EQ(curl.waitForExit(), 28) << "the backend waits for the rest of the second request";
        EXPECT_THAT(curl.lines(), AllOf(Contains(HasSubstr(fmt::format("HTTP/1.1 {}", status))),
                                        Contains(testing::ContainsRegex("Serial Number:[0-9a-f]{9}")),
                                        Not(Contains(HasSubstr("Content-Length: 4")))));
    }
    EXPECT_EQ(backend.takeRequests().size(), 2U);
}

} // namespace
