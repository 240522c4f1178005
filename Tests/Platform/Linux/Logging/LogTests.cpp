#include "Platform/Linux/Logging/JournalLog.h"
#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Platform/Linux/IsolatedProcess.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <array>

using namespace Platform;
using namespace Platform::Linux;
using namespace Platform::Linux::Logging;

namespace {

/// An entry, and what it looks like in the logs.
struct LogEntry {
    PrivateData privateData;
    LogType type;
    LogVisibility visibility;
    const char* line;
    const char* level;
    int priority;
    const char* text;
    /// What the journal receives instead of `text` if it contains a line break.
    std::string message = {};
};

constexpr auto publicLine = LogVisibility::public_;
constexpr auto privateLine = LogVisibility::private_;
const LogEntry logEntries[] = {
    {PrivateData::redacted, LogType::info, privateLine, "canary", "info", 6, "<private>"},
    {PrivateData::shown, LogType::default_, privateLine, "canary", "warning", 4, "canary"},
    // The journal precedes a value with a line break by its length; see systemd's journal export format.
    {PrivateData::redacted, LogType::fault, publicLine, "two\nlines\t\x1b[31m\r\x7f\u009b \u00e4", "critical",
     2, "two\\nlines\\t\\x1b[31m\\r\\x7f\\x9b \u00e4",
     std::string("\n\x20\0\0\0\0\0\0\0", 9) + "two\nlines\\t\\x1b[31m\\r\\x7f\\x9b \u00e4"},
    {PrivateData::redacted, LogType::error, publicLine, "e", "error", 3, "e"},
    {PrivateData::redacted, LogType::debug, publicLine, "", "debug", 7, ""},
};

TEST(StandardErrorLogTest, WritesOneRedactedLinePerEntry)
{
    ManualScheduler scheduler;
    scheduler.advance(std::chrono::milliseconds(1500));
    for (const LogEntry& entry : logEntries) {
        StandardErrorLog log(scheduler, entry.privateData);
        testing::internal::CaptureStderr();
        log.write({"com.quorvane.mdm", "general"}, entry.type, entry.visibility, entry.line);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  fmt::format("2001-01-01T00:00:01.500Z {} com.quorvane.mdm general {}\n", entry.level,
                              entry.text));
    }
}

TEST(JournalLogTest, SendsNativeFieldsAndRedactsPrivateLines)
{
    const TemporaryFolder folder;
    const auto isSent = runIsolated(CLONE_NEWNS, [&] {
        const int receiver = listenAsJournal();
        for (const LogEntry& entry : logEntries) {
            JournalLog log("quorvane-mdm", entry.privateData);
            log.write({"com.quorvane.mdm", "network"}, entry.type, entry.visibility, entry.line);
            std::array<char, 4096> sent;
            const ssize_t length = ::recv(receiver, sent.data(), sent.size(), MSG_DONTWAIT);
            folder.write(entry.level, {sent.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))});
        }
        return receiver >= 0 && JournalLog::isAvailable();
    });
    if (!isSent)
        GTEST_SKIP() << "cannot create a mount namespace here";
    EXPECT_TRUE(*isSent);
    for (const LogEntry& entry : logEntries)
        EXPECT_EQ(
            folder.read(entry.level),
            fmt::format("MESSAGE{}\nPRIORITY={}\nSYSLOG_IDENTIFIER=quorvane-mdm\n"
                        "QV_SUBSYSTEM=com.quorvane.mdm\nQV_CATEGORY=network\nQV_LEVEL={}\nQV_PRIVACY={}\n",
                        entry.message.empty() ? std::string("=") + entry.text : entry.message, entry.priority,
                        entry.level, entry.visibility == publicLine ? "public" : "private"));
}

TEST(StandardErrorLogTest, ShowsPrivateDataOnlyOnRequest)
{
    constexpr const char* name = "QUORVANE_LOG_PRIVATE_DATA";
    for (const char* value : {"", "1", "shown", "show"}) {
        ::setenv(name, value, 1);
        EXPECT_EQ(privateDataFromEnvironment() == PrivateData::shown, value == std::string("show")) << value;
    }
    ::unsetenv(name);
}

TEST(AdapterLogTest, EscapesUnprintableCharacters)
{
    RecordingUnifiedLog log;
    log.adapterLog.error("/a\nb: malformed (\x1b]0;x\x07)\u202e");
    EXPECT_THAT(log.takeLines(), testing::ElementsAre("/a\\nb: malformed (\\x1b]0;x\\x07)\\u202e"));
}

TEST(StandardErrorLogTest, DropsLinesInsteadOfBlocking)
{
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    const int standardError = ::dup(STDERR_FILENO);
    ::dup2(pipe[1], STDERR_FILENO);
    ManualScheduler scheduler;
    StandardErrorLog log(scheduler, PrivateData::redacted);
    const std::string line(10'000, 'x');
    for (int i = 0; i < 20; ++i)
        log.write({"s", "c"}, LogType::info, LogVisibility::public_, line);
    std::string received(1 << 20, '\0');
    EXPECT_GT(::read(pipe[0], received.data(), received.size()), 0);
    log.write({"s", "c"}, LogType::info, LogVisibility::public_, "read again");
    log.write({"s", "c"}, LogType::info, LogVisibility::public_, "no more lost");
    received.resize(static_cast<std::size_t>(::read(pipe[0], received.data(), received.size())));
    ::dup2(standardError, STDERR_FILENO);
    for (const int end : {pipe[0], pipe[1], standardError})
        ::close(end);
    EXPECT_THAT(received,
                testing::MatchesRegex("\n\\([0-9]+ lines lost\\)\n[^\n]* read again\n[^\n]* no more lost\n"));
}

} // namespace
