#include "Platform/Linux/Logging/StandardErrorLog.h"

#include "Platform/AdapterLog.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <string>
#include <unistd.h>

using namespace Platform;
using namespace Platform::Linux;
using namespace Platform::Linux::Logging;

namespace {

TEST(StandardErrorLogTest, WritesOneRedactedLinePerEntry)
{
    struct Case {
        PrivateData privateData;
        LogType type;
        LogVisibility visibility;
        const char* text;
        const char* expected;
    };
    const Case cases[] = {
        {PrivateData::redacted, LogType::info, LogVisibility::private_, "secret",
         "2001-01-01T00:00:01.500Z info com.quorvane.mdm general <private>\n"},
        {PrivateData::shown, LogType::default_, LogVisibility::private_, "secret",
         "2001-01-01T00:00:01.500Z warning com.quorvane.mdm general secret\n"},
        {PrivateData::redacted, LogType::fault, LogVisibility::public_,
         "two\nlines\t\x1b[31m\r\x7f\u009b \u00e4",
         "2001-01-01T00:00:01.500Z critical com.quorvane.mdm general two\\nlines\\t\\x1b[31m\\r\\x7f\\x9b "
         "\u00e4\n"},
        {PrivateData::redacted, LogType::debug, LogVisibility::public_, "",
         "2001-01-01T00:00:01.500Z debug com.quorvane.mdm general \n"},
        {PrivateData::redacted, LogType::error, LogVisibility::public_, "e",
         "2001-01-01T00:00:01.500Z error com.quorvane.mdm general e\n"},
    };
    ManualScheduler scheduler;
    scheduler.advance(std::chrono::milliseconds(1500));
    for (const Case& row : cases) {
        StandardErrorLog log(scheduler, row.privateData);
        testing::internal::CaptureStderr();
        log.write({"com.quorvane.mdm", "general"}, row.type, row.visibility, row.text);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.expected);
    }
}

TEST(StandardErrorLogTest, ShowsPrivateDataOnlyOnRequest)
{
    constexpr const char* name = "QUORVANE_LOG_PRIVATE_DATA";
    const char* previous = std::getenv(name);
    const std::string restored = previous == nullptr ? "" : previous;
    for (const char* value : {"", "1", "shown", "show"}) {
        ::setenv(name, value, 1);
        EXPECT_EQ(privateDataFromEnvironment() == PrivateData::shown, value == std::string("show")) << value;
    }
    ::setenv(name, restored.c_str(), 1);
}

TEST(AdapterLogTest, EscapesUnprintableCharacters)
{
    RecordingUnifiedLog log;
    AdapterLog(log, "test").error("/a\nb: malformed (\x1b]0;x\x07)\u202e");
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
