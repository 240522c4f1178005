#include "Platform/Linux/Logging/JournalLog.h"

#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace Platform;
using namespace Platform::Linux;
using namespace Platform::Linux::Logging;
using testing::HasSubstr;

namespace {

constexpr int cannotIsolate = 77;

/// Listens at /run/systemd/journal/socket in a private /run. Exits with `cannotIsolate` if that is not
/// allowed.
int bindJournalSocket()
{
    // An unprivileged user may create a mount namespace inside a new user namespace.
    const bool isIsolated = ::unshare(CLONE_NEWNS) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
    if (!isIsolated || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0)
        ::_exit(cannotIsolate);
    std::filesystem::create_directories("/run/systemd/journal");
    const int receiver = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    const sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
    if (::bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        ::_exit(cannotIsolate);
    return receiver;
}

TEST(JournalLogTest, SendsNativeFieldsAndRedactsPrivateLines)
{
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const int receiver = bindJournalSocket();
        const auto relay = [&](PrivateData privateData, LogType type, LogVisibility visibility,
                               const char* line) {
            JournalLog log("quorvane-mdm", privateData);
            log.write({"com.quorvane.mdm", "network"}, type, visibility, line);
            std::array<char, 4096> entry;
            const ssize_t length = ::recv(receiver, entry.data(), entry.size(), MSG_DONTWAIT);
            [[maybe_unused]] auto written =
                ::write(pipe[1], entry.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
            written = ::write(pipe[1], "----\n", 5);
        };
        if (!JournalLog::isAvailable())
            ::_exit(1);
        relay(PrivateData::redacted, LogType::info, LogVisibility::private_, "secret");
        relay(PrivateData::shown, LogType::default_, LogVisibility::private_, "a\nb\x1b");
        relay(PrivateData::redacted, LogType::fault, LogVisibility::public_, "seen");
        ::_exit(0);
    }
    ::close(pipe[1]);
    std::string received;
    std::array<char, 4096> chunk;
    for (ssize_t count = 0; (count = ::read(pipe[0], chunk.data(), chunk.size())) > 0;)
        received.append(chunk.data(), static_cast<std::size_t>(count));
    ::close(pipe[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WEXITSTATUS(status) == cannotIsolate)
        GTEST_SKIP() << "cannot create a mount namespace here";
    ASSERT_EQ(status, 0);

    const auto secondEntry = received.find("----\n");
    const auto thirdEntry = received.find("----\n", secondEntry + 1);
    const std::vector<std::string> entries{received.substr(0, secondEntry),
                                           received.substr(secondEntry, thirdEntry - secondEntry),
                                           received.substr(thirdEntry)};
    for (const char* field : {"MESSAGE=<private>\n", "PRIORITY=6\n", "SYSLOG_IDENTIFIER=quorvane-mdm\n",
                              "QV_SUBSYSTEM=com.quorvane.mdm\n", "QV_CATEGORY=network\n", "QV_LEVEL=info\n",
                              "QV_PRIVACY=private\n"})
        EXPECT_THAT(entries[0], HasSubstr(field));
    // A value with a line break is preceded by its length; see systemd's journal export format.
    EXPECT_THAT(entries[1], HasSubstr(std::string("MESSAGE\n\x07\0\0\0\0\0\0\0a\nb\\x1b\n", 24)));
    EXPECT_THAT(entries[1], HasSubstr("PRIORITY=4\n"));
    EXPECT_THAT(entries[1], HasSubstr("QV_LEVEL=warning\n"));
    EXPECT_THAT(entries[2], HasSubstr("MESSAGE=seen\n"));
    EXPECT_THAT(entries[2], HasSubstr("PRIORITY=2\n"));
    EXPECT_THAT(entries[2], HasSubstr("QV_PRIVACY=public\n"));
}

} // namespace
