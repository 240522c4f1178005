#include "Platform/AdapterLog.h"
#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Linux/LocalPushService.h"
#include "Platform/Linux/PrivateSocket.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <future>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <vector>

using namespace Platform;
using Linux::LocalPushService;
using namespace std::chrono_literals;
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

    LocalPushService makeService() { return {{store, loop, adapterLog}, socketFile}; }
    /// Sends a payload while the main queue runs.
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
    AdapterLog adapterLog{log, "test"};
    int argc = 0;
    Desktop::QtRunLoop loop{std::make_unique<QCoreApplication>(argc, nullptr)};
    std::vector<Data> tokens;
    std::vector<std::string> failures;
    std::vector<std::string> received;
    int unreadableCount = 0;
};

TEST_F(LocalPushServiceTest, KeepsTokenAndServesOneApplication)
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
        EXPECT_EQ(failures.size(), static_cast<std::size_t>(start)) << "only one application can listen";
        EXPECT_EQ(send("{}"), "ok") << "the first one still listens";
    }
    ASSERT_EQ(tokens.size(), 2U);
    EXPECT_EQ(tokens[0].size(), 32U);
    EXPECT_EQ(tokens[0], tokens[1]);
    EXPECT_FALSE(std::filesystem::exists(socketFile));
    EXPECT_THROW(Linux::sendToLocalPushService(socketFile, "{}"), std::system_error);
    // A socket file left by a killed application does not prevent the next start.
    folder.write("run/push.sock", "");
    folder.write("run/push.sock.new", "");
    LocalPushService service = makeService();
    service.start(*this);
    EXPECT_EQ(send("{}"), "ok");
}

TEST_F(LocalPushServiceTest, FailsRegistrationWhenTokenCannotBeStored)
{
    store.set("LocalPush.Token", Data(LocalPushService::tokenSize - 1)); // Damaged.
    LocalPushService service = makeService();
    service.start(*this);
    for (const bool isWritable : {false, true}) {
        store.isWritable = isWritable;
        service.registerDevice();
        settle();
        EXPECT_EQ(tokens.size(), isWritable ? 1U : 0U);
        EXPECT_EQ(failures.size(), 1U);
    }
    EXPECT_EQ(tokens.front().size(), LocalPushService::tokenSize);
}

TEST_F(LocalPushServiceTest, RepliesToEachPayload)
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
        {"1 MiB", padded(1 << 20), "error: the payload is larger than 4096 bytes"},
        {"refused", R"({"refuse": true})", "error: as asked"},
        {"emoji and escapes", "{\"aps\": {\"alert\": \"\xF0\x9F\x91\x8B \\u0007\"}}", "ok"},
        {"empty", "", "error: the payload is not a JSON object"},
        {"array", "[1]", "error: the payload is not a JSON object"},
        {"incomplete object", R"({"aps": {)", "error: the payload cannot be read: line 1"},
        {"two objects", "{} {}", "error: the payload cannot be read: line 1"},
        {"key twice", R"({"a": 1, "a": 2})",
         "error: the payload cannot be read: line 1, column 10: a key appears twice"},
        {"nested too deeply", R"({"a": )" + std::string(1000, '['),
         "error: the payload cannot be read: line 1"},
        {"not UTF-8", "{\"a\": \"\xFF\"}", "error: the payload cannot be read: line 1, column 8"},
        {"property list", "<plist><dict/></plist>", "error: the payload is not a JSON object"},
    };
    LocalPushService service = makeService();
    service.start(*this);
    service.registerDevice();
    for (const auto& row : cases) {
        received.clear();
        EXPECT_THAT(send(row.payload), StartsWith(row.answer)) << row.name;
        const bool isDelivered = row.answer == "ok" || row.answer == "error: as asked";
        EXPECT_EQ(received.size(), isDelivered ? 1U : 0U) << row.name;
        settle();
        EXPECT_EQ(std::exchange(unreadableCount, 0), isDelivered ? 0 : 1) << row.name;
    }
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
    LocalPushService service = makeService();
    service.start(*this);
    service.registerDevice();
    std::vector<Storage::FileDescriptor> idle;
    for (std::size_t number = 0; number < LocalPushService::maximumPeerCount; ++number)
        idle.push_back(Linux::connectToPrivateSocket(socketFile, 10s));
    EXPECT_EQ(send("{}"), "ok");
    EXPECT_THAT(availableReply(idle[0]), StartsWith("error: too many connections"));

    ASSERT_EQ(::send(idle[1].get(), "{", 1, 0), 1);
    EXPECT_EQ(send("{}"), "ok") << "there is room again";
    idle.push_back(Linux::connectToPrivateSocket(socketFile, 10s));
    EXPECT_EQ(send("{}"), "ok");
    EXPECT_EQ(availableReply(idle[1]), "") << "it has sent data";
    EXPECT_THAT(availableReply(idle[2]), StartsWith("error: too many connections"));
    EXPECT_EQ(availableReply(idle[3]), "");
}

TEST_F(LocalPushServiceTest, DisconnectsSlowPeersAndOtherUsers)
{
    LocalPushService service({store, loop, adapterLog}, socketFile, 300ms);
    service.start(*this);
    const auto reply = [](const Storage::FileDescriptor& socket) {
        pollfd arrival{.fd = socket.get(), .events = POLLIN, .revents = 0};
        EXPECT_EQ(::poll(&arrival, 1, 20'000), 1);
        return availableReply(socket);
    };
    const auto slow = Linux::connectToPrivateSocket(socketFile, 20s);
    pollfd ended{.fd = slow.get(), .events = POLLIN, .revents = 0};
    for (int count = 0; count < 1000 && ::poll(&ended, 1, 20) == 0; ++count)
        ::send(slow.get(), " ", 1, MSG_NOSIGNAL); // Does not renew the timeout.
    EXPECT_THAT(availableReply(slow), StartsWith("error: the payload was not complete in time"));
    EXPECT_THROW(Linux::listenOnPrivateSocket(folder.path(std::string(120, 'x'))), std::system_error);
    if (::geteuid() != 0)
        return;
    for (const auto& path : {folder.path(), folder.path("run"), socketFile})
        ::chmod(path.c_str(), 0777);
    Storage::FileDescriptor foreign(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{AF_UNIX, {}};
    socketFile.native().copy(address.sun_path, sizeof address.sun_path - 1);
    // Of this thread only, unlike the library's functions.
    ::syscall(SYS_setresuid, -1, otherUser, -1);
    EXPECT_EQ(::connect(foreign.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::syscall(SYS_setresuid, -1, 0, -1);
    EXPECT_THAT(reply(foreign), StartsWith("error: only the user who runs this application"));
}

TEST_F(LocalPushServiceTest, ListensOnlyInAPrivateFolder)
{
    const auto run = folder.path("run");
    const auto change = [&](const std::filesystem::path& path, uid_t user, mode_t mode) {
        EXPECT_TRUE(::geteuid() != 0 || ::chown(path.c_str(), user, static_cast<gid_t>(-1)) == 0);
        EXPECT_EQ(::chmod(path.c_str(), mode), 0);
    };
    const struct {
        const char* name;
        std::function<void()> prepare;
        const char* failure;
        bool needsRoot = false;
    } cases[] = {
        {"open to others", [&] { change(run, ::geteuid(), 0777); }, ""},
        {"in a folder that others can write", [&] { change(folder.path(), ::geteuid(), 0777); },
         "can be written by others (mode 0777); set XDG_RUNTIME_DIR"},
        {"in a sticky folder", [&] { change(folder.path(), ::geteuid(), 01777); }, ""},
        {"folder of another user", [&] { change(run, otherUser, 0700); },
         "belongs to user 65534; set XDG_RUNTIME_DIR", true},
        {"in a folder of another user", [&] { change(folder.path(), otherUser, 0755); },
         "belongs to user 65534", true},
        {"a file", [&] { folder.write("run", ""); }, "run: "},
    };
    for (const auto& row : cases) {
        if (row.needsRoot && ::geteuid() != 0)
            continue;
        SCOPED_TRACE(row.name);
        change(folder.path(), ::geteuid(), 0700);
        std::filesystem::remove_all(run);
        if (std::string_view(row.name) != "a file")
            std::filesystem::create_directory(run);
        row.prepare();
        failures.clear();
        LocalPushService service = makeService();
        service.start(*this);
        service.registerDevice();
        settle();
        ASSERT_EQ(failures.size(), *row.failure == '\0' ? 0U : 1U);
        if (!failures.empty()) {
            EXPECT_THAT(failures.front(), HasSubstr(row.failure));
            continue;
        }
        EXPECT_EQ(std::filesystem::status(run).permissions(), std::filesystem::perms::owner_all);
        EXPECT_EQ(send("{}"), "ok");
    }
    change(folder.path(), ::geteuid(), 0700);
}

/// Returns a socket on which `user` listens but accepts no connections.
Storage::FileDescriptor listenAs(uid_t user, const std::filesystem::path& file)
{
    Storage::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{AF_UNIX, {}};
    file.native().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
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
    LocalPushService service = makeService();
    service.start(*this);
    isStarted.set_value();
    EXPECT_THAT(log.takeLines(), testing::ElementsAre(HasSubstr("Address already in use")));
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
