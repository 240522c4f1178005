#include "Platform/Network/ProxyEnvironment.h"
#include "Platform/Network/ResponseHeader.h"
#include "Platform/Network/SecureRequest.h"

#include "Tests/Fakes/Bytes.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <map>

using namespace Platform;
using namespace Platform::Network;
using namespace testing;

namespace {

using Code = URLError::Code;

TEST(SecureRequestTest, RedirectsAdaptTheRequestAndKeepCredentialsOnOnePort)
{
    const std::string same = " https://a.example:8443/to ";
    const std::string asGet = "GET" + same + "- Authorization Cookie X-Device-ID X-Other ";
    const std::string all = "body Authorization Content-Type Cookie X-Device-ID X-Other ";
    const std::tuple<int, std::string, const char*, std::string> cases[] = {
        {301, "POST", "/to", asGet},
        {301, "PUT", "/to", "PUT" + same + all},
        {302, "POST", "/to", asGet},
        {303, "PUT", "/to", asGet},
        {303, "HEAD", "/to", "HEAD" + same + all},
        {307, "POST", "https://A.Example:8443/to", "POST" + same + all},
        {308, "PATCH", "//a.example:8443/to", "PATCH" + same + all},
        {307, "PUT", "https://a.example/to", "PUT https://a.example/to body Content-Type X-Other "},
        {307, "PUT", "https://b.example:8443/t \t\u00f6",
         "PUT https://b.example:8443/t%20%09%C3%B6 body Content-Type X-Other "},
    };
    const SecureURL from = parseSecureURL("https://a.example:8443/x");
    for (const auto& [status, method, location, expected] : cases) {
        URLRequest request{.url = from.url,
                           .httpMethod = method,
                           .headerFields = {{"Authorization", "secret"},
                                            {"Content-Type", "text/plain"},
                                            {"Cookie", "secret"},
                                            {"X-Device-ID", "secret"},
                                            {"X-Other", "x"}},
                           .httpBody = bytesOf("body")};
        redirectRequest(request, status, from, parseRedirectURL(from, location));
        std::string result = request.httpMethod + " " + request.url + " " +
                             (request.httpBody ? textOf(*request.httpBody) : "-") + " ";
        for (const auto& [name, value] : request.headerFields)
            result += name + " ";
        EXPECT_EQ(result, expected) << status << " to " << location;
    }
    std::string followed;
    for (int status = 200; status < 600; ++status)
        followed += isRedirect(status) ? std::to_string(status) + " " : "";
    EXPECT_EQ(followed, "301 302 303 307 308 ");
}

TEST(SecureRequestTest, RejectsInvalidRequestsWithoutQuotingSecrets)
{
    struct Case {
        const char* reason;
        std::string url;
        Code code = Code::badURL;
        HeaderFields headerFields = {};
        std::string method = "GET";
    };
    const std::string good = "https://a/";
    const Case cases[] = {
        {"\"X-API-Key\" has a line break", good, Code::unknown, {{"X-API-Key", "secret\nX-Evil: 1"}}},
        {"\"X-Device-Id\" has a line break", good, Code::unknown, {{"X-Device-Id", "secret\r"}}},
        {"\"X-A\" has a line break or NUL", good, Code::unknown, {{"X-A", std::string("secret\0", 7)}}},
        {"\"X-A\\r\\nX-Evil\" contains", good, Code::unknown, {{"X-A\r\nX-Evil", "secret"}}},
        {"\"X-A:b\" contains", good, Code::unknown, {{"X-A:b", "secret"}}},
        {"\"\" contains an invalid", good, Code::unknown, {{"", "secret"}}},
        {"The method", good, Code::unknown, {}, "GET / HTTP/1.1\r\nX-Evil: 1"},
        {"space", "https://a/a b"},
        {"control character", "https://a/\x7f"},
        {"control character", std::string("https://a/\0b", 12)},
        {"invalid character", "https://local%7fhost/"},
        {"port", "https://localhost:105751/"},
        {"port", "https://localhost:00/"},
        {"not absolute", "/path"},
        {"no host", "https:///localhost/"},
        {"only https", "http://localhost/", Code::appTransportSecurityRequiresSecureConnection},
        {"\"ftp\" are not supported", "ftp://localhost/", Code::unsupportedURL},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.url + row.reason);
        try {
            URLRequest request{.url = row.url, .httpMethod = row.method, .headerFields = row.headerFields};
            cleanRequest(request);
            parseSecureURL(request.url);
            ADD_FAILURE() << "accepted";
        } catch (const URLError& error) {
            EXPECT_EQ(error.errorCode(), static_cast<std::int64_t>(row.code));
            EXPECT_THAT(error.what(), AllOf(HasSubstr(row.reason), Not(HasSubstr("secret"))));
        }
    }
}

TEST(ProxyEnvironmentTest, ReadsTheProxyAndItsExceptionsFromTheEnvironment)
{
    using Variables = std::map<std::string, std::string>;
    const auto besides = [](const char* exceptions) {
        return Variables{{"https_proxy", "p"}, {"no_proxy", exceptions}};
    };
    const std::string proxied = "http p:1080 (https_proxy)";
    const std::tuple<Variables, std::string, std::string> cases[] = {
        {{}, "a", "direct"},
        {{{"HTTPS_PROXY", "HTTPS://p"}}, "a", "https p:443 (HTTPS_PROXY)"},
        {{{"all_proxy", "q"}, {"https_proxy", "p"}}, "a", proxied},
        {{{"https_proxy", ""}, {"ALL_PROXY", "socks5h://p:9"}}, "a", "socks5h p:9 (ALL_PROXY)"},
        {{{"https_proxy", "http://u:p@ss@p:3128/path"}}, "a", "http p:3128 (https_proxy) u:p@ss"},
        {{{"https_proxy", "http://[::1]:3128"}}, "a", "http [::1]:3128 (https_proxy)"},
        {{{"https_proxy", "[::1]"}}, "a", "http [::1]:1080 (https_proxy)"},
        {{{"https_proxy", "p:0"}}, "a", "https_proxy has an invalid port"},
        {{{"https_proxy", "p:65536"}}, "a", "https_proxy has an invalid port"},
        {{{"https_proxy", "p:1x"}}, "a", "https_proxy has an invalid port"},
        {{{"https_proxy", "http://:1"}}, "a", "https_proxy has no host"},
        {besides("example.com"), "example.com", "direct"},
        {besides("example.com"), "a.Example.com.", "direct"},
        {besides("example.com"), "badexample.com", proxied},
        {besides("example.com"), "example.com.org", proxied},
        {besides("a,.Example.com."), "example.com", "direct"},
        {besides("a b\texample.com"), "example.com", "direct"},
        {besides(",,"), "example.com", proxied},
        {besides("*"), "example.com", "direct"},
        {{{"https_proxy", "p"}, {"NO_PROXY", "example.com"}}, "example.com", "direct"},
        {besides("10.1.2.3"), "10.1.2.3", "direct"},
        {besides("2.3"), "10.1.2.3", proxied},
        {besides("10.1.2.3/32"), "10.1.2.3", "direct"},
        {besides("10.0.0.0/8"), "11.1.2.3", proxied},
        {besides("10.0.0.0/7"), "11.1.2.3", "direct"},
        {besides("10.0.0.0/33"), "10.0.0.0", proxied},
        {besides("192.168.1.128/25"), "192.168.1.127", proxied},
        {besides("fd00::/8"), "fd12::1", "direct"},
        {besides("::/0"), "10.1.2.3", proxied},
    };
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
        ::unsetenv(name);
    for (const auto& [variables, host, expected] : cases) {
        for (const auto& [name, value] : variables)
            ::setenv(name.c_str(), value.c_str(), 1);
        std::string result = "direct";
        if (const auto proxy = ProxyEnvironment::forHost(host))
            result = !proxy->problem.empty() ? proxy->problem
                                             : proxy->scheme + " " + proxy->description() +
                                                   (proxy->user.empty() ? "" : " " + proxy->user);
        EXPECT_EQ(result, expected) << host << PrintToString(variables);
        for (const auto& [name, value] : variables)
            ::unsetenv(name.c_str());
    }
}

TEST(ResponseHeaderTest, KeepsTheFieldsOfTheFinalResponse)
{
    ResponseHeader header;
    for (const char* line :
         {"HTTP/1.1 103 Early Hints\r\n", "X-Early: 1\r\n", "Location: /early\r\n", "\r\n",
          "HTTP/1.1 302 Found\r\n", "Location: /first\r\n", "location: /second\r\n", "X-A: 1 \r\n",
          "x-a:\t2\r\n", "\t3\r\n", "no colon\r\n", " 4\r\n", "\r\n", "X-Trailer: 1\r\n"})
        EXPECT_TRUE(header.addLine(line));
    EXPECT_EQ(header.fields(), (HeaderFields{{"Location", "/first"}, {"X-A", "1, 2 3"}}));

    EXPECT_TRUE(header.addLine("HTTP/1.1 103 Early Hints\r\n"));
    for (std::size_t number = 0; number <= ResponseHeader::maximumFieldCount; ++number)
        EXPECT_TRUE(header.addLine("X-" + std::to_string(number) + ": 1\r\n"));
    EXPECT_TRUE(header.addLine("Location: /late\r\n"));
    EXPECT_THAT(header.fields(), SizeIs(ResponseHeader::maximumFieldCount + 1)) << "does not count";
    EXPECT_TRUE(header.addLine("HTTP/1.1 200 OK\r\n") && header.addLine("X-A: 1\r\n"));
    EXPECT_EQ(header.fields(), (HeaderFields{{"X-A", "1"}})) << "early hints do not count";

    const std::string half(ResponseHeader::maximumBytes / 2, 'x');
    ResponseHeader longest;
    EXPECT_TRUE(longest.addLine(half) && longest.addLine(half)) << "exactly the limit";
    EXPECT_TRUE(!longest.addLine("x") && longest.isTooLong());
}

} // namespace
