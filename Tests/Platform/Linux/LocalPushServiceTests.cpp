#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Linux/AdapterLog.h"
#include "Platform/Linux/LocalPushService.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <future>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <vector>

using namespace Platform;
using Linux::LocalPushService;
using testing::StartsWith;

namespace {

class LocalPushServiceTest : public testing::Test, public PushServiceListener {
protected:
    void didRegister(const Data& token) override { tokens.push_back(token); }
    void didFailToRegister(const Error& error) override { failures.push_back(error.localizedDescription); }
    void didReceive(const PropertyList::Dictionary& payload, Completion completion) override
    {
        received.push_back(PropertyList(payload).description());
        completion(payload.contains("refuse") ? std::optional(PushRefusal{"as asked"}) : std::nullopt);
    }

    LocalPushService makeService() { return {{store, loop, adapterLog}, socketFile}; }
    /// Sends while the main queue runs.
    std::string send(std::string payload)
    {
        auto answer = std::async(std::launch::async, [&, payload = std::move(payload)] {
            std::string line = Linux::sendToLocalPushService(socketFile, payload);
            loop.quit();
            return line;
        });
        loop.run();
        return answer.get();
    }
    void settle()
    {
        loop.async([this] { loop.quit(); });
        loop.run();
    }

    TemporaryFolder folder;
    std::filesystem::path socketFile = folder.path("run/push.sock");
    FakeUserDefaults store;
    RecordingUnifiedLog log;
    Linux::AdapterLog adapterLog{log, "test"};
    int argc = 0;
    Desktop::QtRunLoop loop{std::make_unique<QCoreApplication>(argc, nullptr)};
    std::vector<Data> tokens;
    std::vector<std::string> failures;
    std::vector<std::string> received;
};

TEST_F(LocalPushServiceTest, KeepsItsTokenAndItsSocketToItself)
{
    for (int start = 1; start <= 2; ++start) {
        LocalPushService service = makeService();
        service.start(*this);
        if (start == 1) {
            EXPECT_THAT(send("{}"), StartsWith("error: the application has not registered"));
        }
        service.registerDevice();
        EXPECT_TRUE(tokens.size() < static_cast<std::size_t>(start)) << "not inside the call";
        settle();
        struct stat status {};
        ASSERT_EQ(::stat(socketFile.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0600U);

        LocalPushService rival = makeService();
        rival.start(*this);
        rival.registerDevice();
        settle();
        EXPECT_EQ(failures.size(), static_cast<std::size_t>(start)) << "one socket, one application";
        EXPECT_EQ(send("{}"), "ok") << "undisturbed";
    }
    ASSERT_EQ(tokens.size(), 2U);
    EXPECT_EQ(tokens[0].size(), 32U);
    EXPECT_EQ(tokens[0], tokens[1]);
    EXPECT_FALSE(std::filesystem::exists(socketFile));
    EXPECT_THROW(Linux::sendToLocalPushService(socketFile, "{}"), std::system_error);
    // What a killed application leaves behind is in nobody's way.
    folder.write("run/push.sock", "");
    LocalPushService service = makeService();
    service.start(*this);
    EXPECT_EQ(send("{}"), "ok");
}

TEST_F(LocalPushServiceTest, TokenThatCannotBeStoredIsNone)
{
    LocalPushService service = makeService();
    service.start(*this);
    for (const bool isWritable : {false, true}) {
        store.isWritable = isWritable;
        service.registerDevice();
        settle();
        EXPECT_EQ(tokens.size(), isWritable ? 1U : 0U);
        EXPECT_EQ(failures.size(), 1U);
    }
}

TEST_F(LocalPushServiceTest, AnswersEachPayloadOnceItIsDealtWith)
{
    const auto padded = [](std::size_t size) { return R"({"a": ")" + std::string(size - 9, 'x') + "\"}"; };
    const struct {
        const char* name;
        std::string payload;
        std::string answer;
    } cases[] = {
        {"object", R"({"aps": {"alert": "Hello"}})", "ok"},
        {"4096 bytes", padded(4096), "ok"},
        {"4097 bytes", padded(4097), "error: the payload is larger than 4096 bytes"},
        {"refused", R"({"refuse": true})", "error: as asked"},
        {"emoji and escapes", "{\"aps\": {\"alert\": \"\xF0\x9F\x91\x8B \\u0007\"}}", "ok"},
        {"nothing", "", "error: the payload is not a JSON object"},
        {"array", "[1]", "error: the payload is not a JSON object"},
        {"half", R"({"aps": {)", "error: the payload cannot be read: line 1"},
        {"two", "{} {}", "error: the payload cannot be read: line 1"},
        {"key twice", R"({"a": 1, "a": 2})",
         "error: the payload cannot be read: line 1, column 10: a key appears twice"},
        {"deep", R"({"a": )" + std::string(1000, '['), "error: the payload cannot be read: line 1"},
        {"not UTF-8", "{\"a\": \"\xFF\"}", "error: the payload cannot be read: line 1, column 8"},
        {"another format", "<plist><dict/></plist>", "error: the payload is not a JSON object"},
    };
    LocalPushService service = makeService();
    service.start(*this);
    service.registerDevice();
    for (const auto& row : cases) {
        received.clear();
        EXPECT_THAT(send(row.payload), StartsWith(row.answer)) << row.name;
        const bool isHandedOn = row.answer == "ok" || row.answer == "error: as asked";
        EXPECT_EQ(received.size(), isHandedOn ? 1U : 0U) << row.name;
    }
}

/// A connection to `socketFile` on which nothing has been sent.
Linux::FileDescriptor connectTo(const std::filesystem::path& socketFile)
{
    Linux::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{AF_UNIX, {}};
    socketFile.native().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return socket;
}

/// What is answered, without waiting for it.
std::string answerOn(const Linux::FileDescriptor& socket)
{
    std::array<char, 512> buffer;
    const ssize_t count = ::recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

TEST_F(LocalPushServiceTest, IdlePeersMakeWayForTheNext)
{
    LocalPushService service = makeService();
    service.start(*this);
    service.registerDevice();
    std::vector<Linux::FileDescriptor> idle;
    for (std::size_t number = 0; number < LocalPushService::maximumPeerCount; ++number)
        idle.push_back(connectTo(socketFile));
    EXPECT_EQ(send("{}"), "ok");
    EXPECT_THAT(answerOn(idle[0]), StartsWith("error: too many others"));

    ASSERT_EQ(::send(idle[1].get(), "{", 1, 0), 1);
    EXPECT_EQ(send("{}"), "ok") << "there is room again";
    idle.push_back(connectTo(socketFile));
    EXPECT_EQ(send("{}"), "ok");
    EXPECT_EQ(answerOn(idle[1]), "") << "it is not idle";
    EXPECT_THAT(answerOn(idle[2]), StartsWith("error: too many others"));
    EXPECT_EQ(answerOn(idle[3]), "");
}

} // namespace
