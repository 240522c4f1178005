#include "Platform/AdapterLog.h"
#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Linux/LocalPushService.h"
#include "Platform/Linux/PrivateSocket.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Platform/Linux/IsolatedProcess.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <vector>

using namespace Platform;
using Linux::LocalPushService;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr uid_t otherUser = 65534;

class LocalPushServiceTest : public testing::Test, public PushServiceListener {
protected:
    void didRegister(const Data& token) override { tokens.push_back(token); }
    void didFailToRegister(const Error& error) override { failures.push_back(error.localizedDescription); }
    void didReceive(const PropertyList::Dictionary& payload, Completion completion) override
    {
        received.push_back(PropertyList(payload).description());
        completion(payload.contains("refuse") ? std::optional(PushRefusal{"as asked"}) : std::nullopt);
    }
    void didReceiveUnreadablePush() override { ++unreadableCount; }

    /// Replaces the service. Registers the device if `isRegistering` is true.
    void start(bool isRegistering = true, std::chrono::milliseconds peerTime = 20s)
    {
        service.reset();
        service.emplace(LocalPushService::Ports{store, loop, adapterLog}, socketFile, peerTime);
        service->start(*this);
        if (isRegistering) {
            service->registerDevice();
            settle();
        }
    }
    /// Sends a payload while the main queue runs.
    std::string send(const std::string& payload = "{}")
    {
        auto answer = std::async(std::launch::async, [&] {
            const std::unique_ptr<void, std::function<void(void*)>> end(this, [&](void*) { loop.quit(); });
            return Linux::sendToLocalPushService(socketFile, payload);
        });
        loop.run();
        return answer.get();
    }
    void settle()
    {
        loop.async([this] { loop.quit(); });
        loop.run();
    }
    [[nodiscard]] Storage::FileDescriptor connect() const
    {
        return Linux::connectToPrivateSocket(socketFile, 20s);
    }

    TemporaryFolder folder;
    std::filesystem::path socketFile = folder.path("run/push.sock");
    FakeUserDefaults store;
    RecordingUnifiedLog log;
    AdapterLog adapterLog{log, "test"};
    int argc = 0;
    Desktop::QtRunLoop loop{std::make_unique<QCoreApplication>(argc, nullptr)};
    std::vector<Data> tokens;
    std::vector<std::string> failures;
    std::vector<std::string> received;
    int unreadableCount = 0;
    std::optional<LocalPushService> service;
};

TEST_F(LocalPushServiceTest, KeepsTokenAndServesOneApplication)
{
    for (std::size_t number = 1; number <= 2; ++number) {
        start(false);
        if (number == 1) {
            EXPECT_THAT(send(), StartsWith("error: the application has not registered"));
        }
        service->registerDevice();
        EXPECT_LT(tokens.size(), number) << "not inside the call";
        settle();
        EXPECT_EQ(std::filesystem::status(socketFile).permissions(), std::filesystem::perms(0600));

        LocalPushService rival({store, loop, adapterLog}, socketFile);
        rival.start(*this);
        rival.registerDevice();
        settle();
        EXPECT_EQ(failures.size(), number) << "only one application can listen";
        EXPECT_EQ(send(), "ok") << "the first one still listens";
    }
    service.reset();
    ASSERT_EQ(tokens.size(), 2U);
    EXPECT_EQ(tokens[0].size(), 32U);
    EXPECT_EQ(tokens[0], tokens[1]);
    EXPECT_FALSE(std::filesystem::exists(socketFile));
    EXPECT_THROW(Linux::sendToLocalPushService(socketFile, "{}"), std::system_error);
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
    EXPECT_EQ(failures.size(), 1U);
    store.isWritable = true;
    service->registerDevice();
    settle();
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
        {"[1]", "error: the payload is not a JSON object"},
        {"<plist><dict/></plist>", "error: the payload is not a JSON object"},
        {R"({"a": 1, "a": 2})", "error: the payload cannot be read: line 1, column 10: a key"},
    };
    start();
    for (const auto& [payload, answer] : cases) {
        SCOPED_TRACE(payload.substr(0, 40));
        received.clear();
        EXPECT_THAT(send(payload), StartsWith(answer));
        const bool isDelivered = answer == std::string("ok") || answer == std::string("error: as asked");
        EXPECT_EQ(received.size(), isDelivered ? 1U : 0U);
        settle();
        EXPECT_EQ(std::exchange(unreadableCount, 0), isDelivered ? 0 : 1);
    }
}

using SocketCall = int (*)(int, const sockaddr*, socklen_t);

/// Returns a socket that is bound or connected to `file`.
Storage::FileDescriptor socketAt(const std::filesystem::path& file, SocketCall bindOrConnect,
                                 Storage::FileDescriptor socket = Storage::FileDescriptor(
                                     ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)))
{
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

TEST_F(LocalPushServiceTest, RestsWhileNoDescriptorIsFreeAndAcceptsAfterwards)
{
    start();
    EXPECT_EQ(send(), "ok");
    Storage::FileDescriptor status;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        if (std::getline(std::ifstream(task.path() / "comm"), name); name == "local push")
            status = Storage::FileDescriptor(::open((task.path() / "status").c_str(), O_RDONLY | O_CLOEXEC));
    }
    // Without streams: UBSan needs a descriptor to check them.
    const auto restCount = [&] {
        constexpr std::string_view title = "\nvoluntary_ctxt_switches:";
        std::array<char, 4096> text{};
        if (::pread(status.get(), text.data(), text.size() - 1, 0) <= 0)
            return -1;
        const char* found = std::strstr(text.data(), title.data());
        return found == nullptr ? -1 : std::atoi(found + title.size());
    };
    Storage::FileDescriptor peer(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    withoutDescriptors([&] {
        peer = socketAt(socketFile, ::connect, std::move(peer));
        const int before = restCount();
        for (int count = 0; count < 2000 && restCount() < before + 5; ++count)
            ::usleep(10'000);
        EXPECT_GE(restCount(), before + 5) << "it tries without a pause";
    });
    ::shutdown(peer.get(), SHUT_WR);
    pollfd arrival{.fd = peer.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(::poll(&arrival, 1, 20'000), 1);
    EXPECT_THAT(availableReply(peer), StartsWith("error: the payload is not a JSON object"));
}

TEST_F(LocalPushServiceTest, DisconnectsSlowPeersAndOtherUsers)
{
    start(false, 300ms);
    const auto slow = connect();
    pollfd ended{.fd = slow.get(), .events = POLLIN, .revents = 0};
    for (int count = 0; count < 1000 && ::poll(&ended, 1, 20) == 0; ++count)
        ::send(slow.get(), " ", 1, MSG_NOSIGNAL); // Does not renew the timeout.
    EXPECT_THAT(availableReply(slow), StartsWith("error: the payload was not complete in time"));
    EXPECT_THROW(Linux::listenOnPrivateSocket(folder.path(std::string(120, 'x'))), std::system_error);
    if (::geteuid() != 0)
        return;
    for (const auto& path : {folder.path(), folder.path("run"), socketFile})
        ::chmod(path.c_str(), 0777);
    // Of this thread only, unlike the library's functions.
    ::syscall(SYS_setresuid, -1, otherUser, -1);
    const auto foreign = socketAt(socketFile, ::connect);
    ::syscall(SYS_setresuid, -1, 0, -1);
    pollfd arrival{.fd = foreign.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(::poll(&arrival, 1, 20'000), 1);
    EXPECT_THAT(availableReply(foreign), StartsWith("error: only the user who runs this application"));
}

TEST_F(LocalPushServiceTest, ListensOnlyInAPrivateFolder)
{
    ::chmod(folder.path().c_str(), 0777);
    start();
    EXPECT_THAT(failures,
                ElementsAre(HasSubstr("can be written by others (mode 0777); set XDG_RUNTIME_DIR")));
    ::chmod(folder.path().c_str(), 0700);
    folder.write("run/file", "");
    ::chmod(folder.path("run").c_str(), 0777);
    start();
    EXPECT_EQ(std::filesystem::status(folder.path("run")).permissions(), std::filesystem::perms::owner_all);
    EXPECT_EQ(send(), "ok");
}

/// Returns a socket on which `user` listens but accepts no connections.
Storage::FileDescriptor listenAs(uid_t user, const std::filesystem::path& file)
{
    auto socket = socketAt(file, ::bind);
    const uid_t thisUser = ::geteuid();
    EXPECT_EQ(::seteuid(user), 0);
    EXPECT_EQ(::listen(socket.get(), 0), 0);
    EXPECT_EQ(::seteuid(thisUser), 0);
    return socket;
}

TEST_F(LocalPushServiceTest, StartDoesNotBlockOnABusySocket)
{
    std::filesystem::create_directory(folder.path("run"));
    Storage::FileDescriptor busy = listenAs(::geteuid(), socketFile);
    std::vector<Storage::FileDescriptor> waiting;
    const auto fill = [&] {
        while (true)
            waiting.push_back(Linux::connectToPrivateSocket(socketFile, 1s));
    };
    EXPECT_THROW(fill(), std::system_error);
    char byte = 0;
    EXPECT_EQ(::recv(waiting.front().get(), &byte, 1, 0), -1) << "it waits for a limited time";
    std::promise<void> isStarted;
    const auto rescue = std::async(std::launch::async, [&, started = isStarted.get_future()] {
        started.wait_for(5s);
        busy = Storage::FileDescriptor();
    });
    start(false);
    isStarted.set_value();
    EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("Address already in use")));
}

TEST_F(LocalPushServiceTest, SenderNeedsAWholeLineAsTheReply)
{
    std::filesystem::create_directory(folder.path("run"));
    const auto listening = listenAs(::geteuid(), socketFile);
    const auto answering = std::async(std::launch::async, [&] {
        const Storage::FileDescriptor peer(::accept(listening.get(), nullptr, nullptr));
        ::send(peer.get(), "ok", 2, MSG_NOSIGNAL);
    });
    EXPECT_THROW(Linux::sendToLocalPushService(socketFile, ""), std::system_error);
}

TEST_F(LocalPushServiceTest, SendsNothingToAnotherUser)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to become another user";
    std::filesystem::create_directory(folder.path("run"));
    const Storage::FileDescriptor foreign = listenAs(otherUser, socketFile);
    EXPECT_THAT([&] { Linux::sendToLocalPushService(socketFile, "{}"); },
                testing::ThrowsMessage<std::runtime_error>(HasSubstr("is served by user 65534")));
    const Storage::FileDescriptor accepted(::accept(foreign.get(), nullptr, nullptr));
    std::array<char, 16> buffer;
    EXPECT_EQ(::recv(accepted.get(), buffer.data(), buffer.size(), 0), 0);
}

} // namespace
