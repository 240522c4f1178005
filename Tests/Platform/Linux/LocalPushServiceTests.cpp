#include "Platform/Linux/LocalPushService.h"

#include "Platform/Linux/PrivateSocket.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/RunOn.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

using namespace Platform;
using Linux::LocalPushService;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// Whether the other end of every socket seems to belong to another user.
std::atomic<bool> isPeerForeign = false;
constexpr uid_t otherUser = 65534;

} // namespace

extern "C" int getsockopt(int socket, int level, int option, void* value, socklen_t* size) noexcept
{
    const auto result = static_cast<int>(::syscall(SYS_getsockopt, socket, level, option, value, size));
    if (isPeerForeign && level == SOL_SOCKET && option == SO_PEERCRED)
        static_cast<ucred*>(value)->uid = otherUser;
    return result;
}

namespace {

class LocalPushServiceTest : public testing::Test, public PushServiceListener {
protected:
    void TearDown() override
    {
        runOn(mainQueue, [&] { service.reset(); });
        isPeerForeign = false;
    }
    void didRegister(const Data& token) override { tokens.push_back(token); }
    void didFailToRegister(const Error&) override { ++failureCount; }
    void didReceive(const PropertyList::Dictionary& payload, Completion completion) override
    {
        ++receivedCount;
        completion(payload.contains("refuse") ? std::optional(PushRefusal{"as asked"}) : std::nullopt);
    }
    void didReceiveUnreadablePush() override { ++unreadableCount; }

    /// Replaces the service. Registers the device if `isRegistering` is true.
    void start(bool isRegistering = true, std::chrono::milliseconds peerTime = 20s)
    {
        runOn(mainQueue, [&] {
            service.emplace(LocalPushService::Ports{store, mainQueue, log.adapterLog}, socketFile, peerTime);
            service->start(*this);
        });
        if (isRegistering)
            registerDevice();
    }
    void registerDevice()
    {
        runOn(mainQueue, [&] {
            const auto tokenCount = tokens.size();
            service->registerDevice();
            EXPECT_EQ(tokens.size(), tokenCount) << "inside the call";
        });
        runOn(mainQueue);
    }
    /// Returns the reply, after everything that the listener did.
    [[nodiscard]] std::string send(const std::string& payload = "{}")
    {
        runOn(mainQueue);
        std::string reply = Linux::sendToLocalPushService(socketFile, payload);
        runOn(mainQueue);
        return reply;
    }
    [[nodiscard]] Storage::FileDescriptor connect() const
    {
        return Linux::connectToPrivateSocket(socketFile, 20s);
    }

    TemporaryFolder folder;
    std::filesystem::path socketFile = folder.path("run/push.sock");
    FakeUserDefaults store;
    RecordingUnifiedLog log;
    Linux::WorkerQueue mainQueue{"main", Linux::WorkerQueue::Priority::default_};
    std::vector<Data> tokens;
    int failureCount = 0;
    int receivedCount = 0;
    int unreadableCount = 0;
    std::optional<LocalPushService> service;
};

TEST_F(LocalPushServiceTest, KeepsTokenAndServesOneApplication)
{
    for (int number = 1; number <= 2; ++number) {
        start(false);
        if (number == 1) {
            EXPECT_THAT(send(), StartsWith("error: the application has not registered"));
        }
        registerDevice();
        EXPECT_EQ(std::filesystem::status(socketFile).permissions(), std::filesystem::perms(0600));

        LocalPushService rival({store, mainQueue, log.adapterLog}, socketFile);
        runOn(mainQueue, [&] {
            rival.start(*this);
            rival.registerDevice();
        });
        runOn(mainQueue);
        EXPECT_EQ(failureCount, number) << "only one application can listen";
        EXPECT_EQ(send(), "ok") << "the first one still listens";
    }
    runOn(mainQueue, [&] { service.reset(); });
    ASSERT_EQ(tokens.size(), 2U);
    EXPECT_EQ(tokens[0].size(), 32U);
    EXPECT_EQ(tokens[0], tokens[1]);
    EXPECT_FALSE(std::filesystem::exists(socketFile));
    EXPECT_THROW(static_cast<void>(send()), std::system_error);
    // A socket file left by a killed application does not prevent the next start.
    folder.write("run/push.sock", "");
    folder.write("run/push.sock.new", "");
    start(false);
    EXPECT_EQ(send(), "ok");
}

TEST_F(LocalPushServiceTest, FailsRegistrationWhenTokenCannotBeStored)
{
    store.set("LocalPush.Token", Data(LocalPushService::tokenSize - 1)); // Damaged.
    store.isWritable = false;
    start();
    EXPECT_EQ(failureCount, 1);
    store.isWritable = true;
    registerDevice();
    ASSERT_EQ(tokens.size(), 1U);
    EXPECT_EQ(tokens.front().size(), LocalPushService::tokenSize);
}

TEST_F(LocalPushServiceTest, RepliesToEachPayload)
{
    const auto padded = [](std::size_t size) { return R"({"a": ")" + std::string(size - 9, 'x') + "\"}"; };
    const std::pair<std::string, const char*> cases[] = {
        {R"({"aps": {"alert": "Hello"}})", "ok"},
        {"{\"aps\": {\"alert\": \"\xF0\x9F\x91\x8B \\u0007\"}}", "ok"},
        {R"({"refuse": true})", "error: as asked"},
        {padded(4096), "ok"},
        {padded(4097), "error: the payload is larger than 4096 bytes"},
        {padded(1 << 20), "error: the payload is larger than 4096 bytes"},
        {"", "error: the payload is not a JSON object"},
        {"<plist><dict/></plist>", "error: the payload is not a JSON object"},
        {R"({"a": 1, "a": 2})", "error: the payload cannot be read: line 1, column 10: a key"},
    };
    start();
    for (const auto& [payload, answer] : cases) {
        SCOPED_TRACE(payload.substr(0, 40));
        EXPECT_THAT(send(payload), StartsWith(answer));
        const bool isDelivered = answer == std::string("ok") || answer == std::string("error: as asked");
        EXPECT_EQ(std::exchange(receivedCount, 0), isDelivered ? 1 : 0);
        EXPECT_EQ(std::exchange(unreadableCount, 0), isDelivered ? 0 : 1);
    }
}

/// Returns a socket that is bound or connected to `file`.
Storage::FileDescriptor socketAt(const std::filesystem::path& file,
                                 int (*bindOrConnect)(int, const sockaddr*, socklen_t))
{
    Storage::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{AF_UNIX, {}};
    file.native().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bindOrConnect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return socket;
}

/// Returns what has arrived, without waiting.
std::string availableReply(const Storage::FileDescriptor& socket)
{
    std::array<char, 512> buffer;
    const ssize_t count = ::recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

TEST_F(LocalPushServiceTest, DisconnectsTheIdlestPeerWhenFull)
{
    start();
    const auto first = connect();
    for (std::size_t number = 0; number <= LocalPushService::maximumPeerCount; ++number)
        EXPECT_EQ(send(), "ok");
    EXPECT_EQ(availableReply(first), "") << "peers that have their reply do not count";
    std::vector<Storage::FileDescriptor> idle;
    for (std::size_t number = 0; number < LocalPushService::maximumPeerCount; ++number)
        idle.push_back(connect());
    EXPECT_EQ(send(), "ok");
    EXPECT_THAT(availableReply(first), StartsWith("error: too many connections"));
    EXPECT_THAT(availableReply(idle[0]), StartsWith("error: too many connections"));

    ASSERT_EQ(::send(idle[1].get(), "{", 1, 0), 1);
    EXPECT_EQ(send(), "ok") << "there is room again";
    idle.push_back(connect());
    EXPECT_EQ(send(), "ok");
    EXPECT_EQ(availableReply(idle[1]), "") << "it has sent data";
    EXPECT_THAT(availableReply(idle[2]), StartsWith("error: too many connections"));
    EXPECT_EQ(availableReply(idle[3]), "");
}

TEST_F(LocalPushServiceTest, DisconnectsSlowPeersAndOtherUsers)
{
    start(false, 300ms);
    const auto slow = connect();
    pollfd ended{.fd = slow.get(), .events = POLLIN, .revents = 0};
    for (int count = 0; count < 1000 && ::poll(&ended, 1, 20) == 0; ++count)
        ::send(slow.get(), " ", 1, MSG_NOSIGNAL); // Does not renew the timeout.
    EXPECT_THAT(availableReply(slow), StartsWith("error: the payload was not complete in time"));
    isPeerForeign = true;
    const auto foreign = socketAt(socketFile, ::connect);
    pollfd arrival{.fd = foreign.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(::poll(&arrival, 1, 20'000), 1);
    EXPECT_THAT(availableReply(foreign), StartsWith("error: only the user who runs this application"));
}

TEST_F(LocalPushServiceTest, ListensOnlyInAPrivateFolder)
{
    folder.write("run/file", "");
    ::chmod(folder.path("run").c_str(), 0777);
    start();
    EXPECT_EQ(std::filesystem::status(folder.path("run")).permissions(), std::filesystem::perms::owner_all);
    EXPECT_EQ(send(), "ok");
    EXPECT_THROW(Linux::listenOnPrivateSocket(folder.path(std::string(120, 'x'))), std::system_error);
}

/// Returns a socket that listens but accepts no connections.
Storage::FileDescriptor listenAt(const std::filesystem::path& file)
{
    std::filesystem::create_directory(file.parent_path());
    auto socket = socketAt(file, ::bind);
    EXPECT_EQ(::listen(socket.get(), 0), 0);
    return socket;
}

TEST_F(LocalPushServiceTest, StartDoesNotBlockOnABusySocket)
{
    const auto busy = listenAt(socketFile);
    std::vector<Storage::FileDescriptor> waiting;
    const auto fill = [&] {
        while (true)
            waiting.push_back(Linux::connectToPrivateSocket(socketFile, 1s));
    };
    EXPECT_THROW(fill(), std::system_error);
    char byte = 0;
    EXPECT_EQ(::recv(waiting.front().get(), &byte, 1, 0), -1) << "it waits for a limited time";
    start(false);
    EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("Address already in use")));
}

TEST_F(LocalPushServiceTest, SenderRequiresTheSameUserAndAWholeLineAsTheReply)
{
    const auto listening = listenAt(socketFile);
    const auto accept = [&] { return Storage::FileDescriptor(::accept(listening.get(), nullptr, nullptr)); };
    isPeerForeign = true;
    EXPECT_THAT([&] { static_cast<void>(send()); },
                testing::ThrowsMessage<std::runtime_error>(HasSubstr("is served by user 65534")));
    char byte = 0;
    EXPECT_EQ(::recv(accept().get(), &byte, 1, 0), 0) << "it sends nothing to another user";
    isPeerForeign = false;
    const auto answering =
        std::async(std::launch::async, [&] { ::send(accept().get(), "ok", 2, MSG_NOSIGNAL); });
    EXPECT_THROW(static_cast<void>(send("")), std::system_error);
}

} // namespace
