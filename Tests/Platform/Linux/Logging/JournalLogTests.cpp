#include "Platform/Linux/Logging/JournalLog.h"

#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Platform/Linux/IsolatedProcess.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using namespace Platform;
using namespace Platform::Linux;
using namespace Platform::Linux::Logging;
using testing::HasSubstr;

namespace {

/// Listens at /run/systemd/journal/socket in a private /run. Returns the socket.
int bindJournalSocket()
{
    ::mount("tmpfs", "/run", "tmpfs", 0, nullptr);
    std::filesystem::create_directories("/run/systemd/journal");
    const int receiver = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    const sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
    return ::bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? receiver : -1;
}

TEST(JournalLogTest, SendsNativeFieldsAndRedactsPrivateLines)
{
    struct Case {
        PrivateData privateData;
        LogType type;
        LogVisibility visibility;
        const char* line;
        std::vector<std::string> fields;
    };
    const auto shown = LogVisibility::public_;
    const Case cases[] = {
        {PrivateData::redacted,
         LogType::info,
         LogVisibility::private_,
         "secret",
         {"MESSAGE=<private>\n", "PRIORITY=6\n", "SYSLOG_IDENTIFIER=quorvane-mdm\n",
          "QV_SUBSYSTEM=com.quorvane.mdm\n", "QV_CATEGORY=network\n", "QV_LEVEL=info\n",
          "QV_PRIVACY=private\n"}},
        // A value with a line break is preceded by its length; see systemd's journal export format.
        {PrivateData::shown,
         LogType::default_,
         LogVisibility::private_,
         "a\nb\x1b",
         {std::string("MESSAGE\n\x07\0\0\0\0\0\0\0a\nb\\x1b\n", 24), "PRIORITY=4\n", "QV_LEVEL=warning\n"}},
        {PrivateData::redacted,
         LogType::fault,
         shown,
         "seen",
         {"MESSAGE=seen\n", "PRIORITY=2\n", "QV_PRIVACY=public\n"}},
        {PrivateData::redacted, LogType::error, shown, "e", {"PRIORITY=3\n", "QV_LEVEL=error\n"}},
        {PrivateData::redacted, LogType::debug, shown, "d", {"PRIORITY=7\n", "QV_LEVEL=debug\n"}},
    };
    const TemporaryFolder folder;
    const auto isSent = runIsolated(CLONE_NEWNS, [&] {
        const int receiver = bindJournalSocket();
        for (const Case& row : cases) {
            JournalLog log("quorvane-mdm", row.privateData);
            log.write({"com.quorvane.mdm", "network"}, row.type, row.visibility, row.line);
            std::array<char, 4096> entry;
            const ssize_t length = ::recv(receiver, entry.data(), entry.size(), MSG_DONTWAIT);
            folder.write(row.line, {entry.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))});
        }
        return receiver >= 0 && JournalLog::isAvailable();
    });
    if (!isSent)
        GTEST_SKIP() << "cannot create a mount namespace here";
    EXPECT_TRUE(*isSent);
    for (const Case& row : cases)
        for (const std::string& field : row.fields)
            EXPECT_THAT(folder.read(row.line), HasSubstr(field));
}

} // namespace
