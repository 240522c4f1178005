#include "Core/APIClient.h"

#include "Core/APIError.h"
#include "Core/Logger.h"
#include "Tests/Fakes/Bytes.h"
#include "Tests/Fakes/FakeURLSession.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <gtest/gtest.h>

#include <limits>

using namespace Core;
using namespace Platform;

namespace {

class FakeConfigProvider final : public APIClientConfigProvider {
public:
    [[nodiscard]] std::optional<std::string> baseDomain() const override { return domain; }
    [[nodiscard]] std::optional<std::string> apiKey() const override { return key; }
    [[nodiscard]] std::optional<std::string> deviceId() const override { return device; }

    std::optional<std::string> domain = "https://acme.corp";
    std::optional<std::string> key = "key";
    std::optional<std::string> device = "DEV-1";
};

struct Payload {
    double number = 1;
    [[nodiscard]] boost::json::value toJSON() const { return boost::json::object{{"number", number}}; }
};

class APIClientTest : public testing::Test {
protected:
    /// Runs the task and returns "STATUS BODY", or the code and description of the exception and its
    /// response body.
    /// The task must send at most one request.
    std::string outcomeOf(Task<APIClient::Response> task)
    {
        std::string outcome;
        const auto await = [&](Task<APIClient::Response> awaited) -> Task<void> {
            try {
                const auto [body, response] = co_await std::move(awaited);
                outcome = std::to_string(response.statusCode) + " " + textOf(body);
            } catch (const APIError& error) {
                outcome = std::to_string(error.errorCode()) + ": " + error.what();
                if (const auto* status = std::get_if<APIError::HTTPStatus>(&error.theCase()))
                    outcome += " " + textOf(status->responseBody.value());
            }
        };
        session.requests.clear();
        spawn(scheduler.mainQueue, await(std::move(task)));
        scheduler.runUntilIdle();
        EXPECT_LE(session.requests.size(), 1U);
        return outcome;
    }

    ManualScheduler scheduler;
    RecordingUnifiedLog log;
    Logger logger{std::make_unique<OSLogSink>(log), "com.example"};
    FakeConfigProvider provider;
    FakeURLSession session{scheduler.mainQueue};
    APIClient client{provider, session, JSONDecoder(), JSONEncoder(), logger};
};

TEST_F(APIClientTest, ResolvesPathAgainstBaseDomainOrReportsInvalidURL)
{
    // Domain, path, and the requested URL or the description of the error.
    const std::tuple<std::optional<std::string>, std::string, std::string> cases[] = {
        {"https://acme.corp", "a/b", "https://acme.corp/a/b"},
        {"https://acme.corp/", "/a/b", "https://acme.corp/a/b"},
        {"  https://acme.corp/x\n", "/a/b", "https://acme.corp/x/a/b"},
        {"https://acme.corp/x/", "a", "https://acme.corp/x/a"},
        {"HTTPS://Acme.Corp:8443", "a", "HTTPS://Acme.Corp:8443/a"},
        {"https://acme.corp", "//other.host/x", "https://acme.corp/other.host/x"},
        {"https://acme.corp", "///other.host/x", "https://other.host/x"},
        {"https://acme.corp/x/y", "../z", "https://acme.corp/x/z"},
        {"https://acme.corp/x?q=1", "a", "https://acme.corp/a"},
        {"https://acme.corp", "a?b=c#d", "https://acme.corp/a?b=c#d"},
        {"https://acme.corp", "http://other.host/x", "http://other.host/x"},
        {"https://[::1]:8443", "a", "https://[::1]:8443/a"},
        {"acme.corp", "a/../b", "acme.corp/b"},
        {"https://acme.corp/%41%2F", "d/a%2Fb/%2e%2e%2f..%2F/%2E%2e/t",
         "https://acme.corp/%41%2F/d/a%2Fb/%2e%2e%2f..%2F/%2E%2e/t"},
        {"https://acme.corp", "a b", "0: Invalid base URL: https://acme.corpa b"},
        {" https://acme.corp ", "/a%zz", "0: Invalid base URL: https://acme.corpa%zz"},
        {"https://acme.corp", "/", "0: Invalid base URL: https://acme.corp"},
        {"https://acme corp", "a", "0: Invalid base URL: https://acme corp"},
        {"acme.corp", "..//other.host", "0: Invalid base URL: acme.corp..//other.host"},
        {"https://acme.corp:80.other", "a", "0: Invalid base URL: https://acme.corp:80.other"},
        {"  ", "a", "0: Invalid base URL:   "},
        {std::nullopt, "a", "0: Invalid base URL: nil"},
    };
    for (const auto& [domain, path, expected] : cases) {
        provider.domain = domain;
        const std::string outcome = outcomeOf(client.delete_(path));
        EXPECT_EQ(session.requests.empty() ? outcome : session.requests[0].url, expected);
        EXPECT_EQ(log.takeText(), "");
    }
}

TEST_F(APIClientTest, EncodesQueryItemsAndReplacesExistingQuery)
{
    const std::pair<std::vector<URLQueryItem>, std::string> cases[] = {
        {{}, "https://acme.corp/a?old=1"},
        {{{"a", "1"}, {"b", std::nullopt}, {"c", ""}}, "https://acme.corp/a?a=1&b&c="},
        {{{"k&=#", "v&=#+ \u00e4/?:@%"}}, "https://acme.corp/a?k%26%3D%23=v%26%3D%23+%20%C3%A4/?:@%25"},
    };
    for (const auto& [items, expected] : cases) {
        outcomeOf(client.get("a?old=1", items));
        EXPECT_EQ(session.requests.back().url, expected);
    }
}

TEST_F(APIClientTest, SendsMethodHeadersBodyAndCredentials)
{
    std::tuple<Task<APIClient::Response>, std::string, std::optional<Data>> cases[] = {
        {client.get("a"), "GET", std::nullopt},
        {client.post("a", std::optional(Payload{2.5})), "POST", bytesOf(R"({"number":2.5})")},
        {client.post("a", std::optional<Payload>()), "POST", std::nullopt},
        {client.post("a", std::optional(Payload{std::numeric_limits<double>::infinity()})), "POST",
         std::nullopt},
        {client.post("a", bytesOf("raw")), "POST", bytesOf("raw")},
        {client.put("a", std::optional(Payload{3})), "PUT", bytesOf(R"({"number":3})")},
        {client.delete_("a"), "DELETE", std::nullopt},
    };
    HeaderFields fields{{"Accept", "application/json"}, {"Content-Type", "application/json"}};
    for (const auto& absent : {std::optional<std::string>(), std::optional<std::string>("")}) {
        provider.key = provider.device = absent;
        outcomeOf(client.get("a"));
        EXPECT_EQ(session.requests.back().headerFields, fields);
        provider.device = "DEV-1"; // One without the other.
        outcomeOf(client.get("a"));
        EXPECT_EQ(session.requests.back().headerFields.count("X-Device-Id"), 1U);
    }
    provider.key = "key";
    fields.insert({{"Authorization", "Bearer key"}, {"X-Device-Id", "DEV-1"}});
    for (auto& [task, method, body] : cases) {
        EXPECT_EQ(outcomeOf(std::move(task)), "200 ");
        const URLRequest& request = session.requests.back();
        EXPECT_EQ(request.httpMethod, method);
        EXPECT_EQ(request.httpBody, body) << method;
        EXPECT_EQ(request.timeoutInterval, std::chrono::seconds(60));
        EXPECT_EQ(request.headerFields, fields);
    }
}

TEST_F(APIClientTest, OnlyStatus2xxSucceedsAndAFailureIsLoggedOnce)
{
    const auto response = [](std::int64_t status, std::string_view body) {
        return URLResponse{bytesOf(body), HTTPURLResponse{status, {}}};
    };
    const std::string warning = "default network API HTTP error | context={responseBody=";
    // The outcome of the transfer, the outcome of the call, and the log.
    const std::tuple<URLSession::Outcome, std::string, std::string> cases[] = {
        {response(200, "{}"), "200 {}", ""},
        {response(204, ""), "204 ", ""},
        {response(299, ""), "299 ", ""},
        {response(199, ""), "1: HTTP error: 199 ", warning + ", statusCode=199}\n"},
        {response(300, "a"), "1: HTTP error: 300 a", warning + "a, statusCode=300}\n"},
        {response(404, "\u00e4\xe2\x82"), "1: HTTP error: 404 \u00e4\xe2\x82",
         warning + "No response body, statusCode=404}\n"},
        {URLResponse{bytesOf("a file"), std::nullopt}, "6: Invalid or non-HTTP response", ""},
        {URLError(URLError::Code::timedOut, "no answer"), "2: Network error: no answer",
         "error network API request failed | error={type=Platform.URLError, domain=NSURLErrorDomain, "
         "code=-1001, description=no answer}\n"},
    };
    for (const auto& [transferred, expected, logged] : cases) {
        session.outcome = transferred;
        EXPECT_EQ(outcomeOf(client.get("a")), expected);
        EXPECT_EQ(log.takeText(), logged);
    }
}

} // namespace
