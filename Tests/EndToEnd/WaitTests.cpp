#include "Platform/Network/ExchangeRecord.h"
#include "Tests/EndToEnd/ProgramTest.h"
#include "Tests/Trials/StoreFile.h"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <thread>

using std::chrono::steady_clock;
using testing::HasSubstr;

namespace {

class WaitTest : public ProgramTest {
protected:
    /// Starts the app with `policy` and waits until it is applied.
    [[nodiscard]] std::unique_ptr<ChildProcess> startWith(std::string_view policy) const
    {
        device.replacePolicy(policy);
        return startUntil(ready, {"--log-stderr", "--push", "off"});
    }

    const char* first = R"({"device_id": "canary-1"})";
    const char* second = R"({"device_id": "canary-2"})";
};

TEST_F(WaitTest, WaitsForAnAppThatStartsLater)
{
    const auto wait = device.startShell("ulimit -t 2; exec $QVCTL wait --timeout 20");
    ASSERT_TRUE(wait->waitForLine("the app is not running; waiting for it"));
    // Nothing else is printed while the policy file changes, even if it is invalid.
    for (int change = 0; change < 15; ++change) {
        device.replacePolicy("{");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    device.replacePolicy(second);
    std::this_thread::sleep_for(std::chrono::seconds(4)); // Without using the processor.
    const auto application = startWith(first);
    EXPECT_EQ(wait->waitForExit(), 0);
    EXPECT_THAT(wait->lines(), testing::ElementsAre(HasSubstr("waiting for it"), "Version 1 is applied."));
}

TEST_F(WaitTest, EndsOnceTheUploadIsRecorded)
{
    EXPECT_EQ(startWith(R"({"base_domain": "backend.example", "device_id": "D"})")->end(), 0);
    const auto wait = device.startConsole({"wait", "--uploaded"});
    ASSERT_TRUE(wait->waitForLine("the app is not running; waiting for it"));
    StoreFile shell(device.path("data/quorvane-mdm/shell.sqlite"));
    constexpr std::int64_t segmentCount = 10; // Of the path to which the token is uploaded.
    Platform::Network::storeExchanges(
        *shell, {{"backend.example:443",
                  {.time = {60}, .method = "POST", .pathSegmentCount = segmentCount, .statusCode = 200}}});
    EXPECT_EQ(wait->waitForExit(), 0);
    EXPECT_EQ(wait->lines().back(), "The device token is uploaded.");
}

TEST_F(WaitTest, MissesNoChangeWhileItStarts)
{
    EXPECT_EQ(startWith(first)->end(), 0);
    device.replacePolicy(second);
    const auto begin = steady_clock::now();
    EXPECT_EQ(qvctl({"wait", "--timeout", "0"}).exitCode, 75);
    const auto runTime = steady_clock::now() - begin;
    constexpr int raceCount = 60;
    for (int race = 0; race < raceCount; ++race) {
        device.replacePolicy(second);
        const auto wait = device.startConsole({"wait", "--timeout", "20"});
        // Before, during or after the first look, which every run takes.
        std::this_thread::sleep_for(runTime * race / raceCount);
        device.replacePolicy(first);
        ASSERT_EQ(wait->waitForExit(), 0) << "race " << race;
    }
}

TEST_F(WaitTest, IsEndedBySignalsButNotByAClosedPipe)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        const auto wait = device.startConsole({"wait"});
        ASSERT_TRUE(wait->waitForLine("waiting for it"));
        wait->signal(signal);
        EXPECT_EQ(wait->waitForExit(), -signal);
    }
    EXPECT_EQ(shell("set -o pipefail; $QVCTL wait --timeout 0.3 | true").exitCode, 75);
}

TEST_F(WaitTest, SetWaitsUntilItsFileIsApplied)
{
    const auto application = startWith(R"({"OrganizationId": 1})");
    device.write(device.path("first.json"), first);
    const std::vector<std::string> set{"config", "set",       device.path("first.json"),
                                       "--wait", "--timeout", "20"};
    EXPECT_THAT(qvctl(set).output, testing::EndsWith("managed.json: changed\nThe app has applied it.\n"));
    EXPECT_EQ(qvctlJSON({"status"}).at("configVersion"), 2);

    // Another administrator replaces or removes the file before the app has seen it.
    application->signal(SIGSTOP);
    const auto reload =
        device.startShell("cd $DEVICE; echo {} > x; exec $QVCTL reload --managed-configuration x");
    for (const char* change : {"replaced", "removed"}) {
        device.write(device.path("first.json"), fmt::format(R"({{"device_id": "canary-{}"}})", change));
        const auto overtaken = device.startConsole(set);
        ASSERT_TRUE(overtaken->waitForLine("changed"));
        device.replacePolicy(second);
        if (change == std::string("removed"))
            std::filesystem::remove(device.policyFile());
        EXPECT_EQ(overtaken->waitForExit(), 1);
        EXPECT_THAT(overtaken->lines().back(),
                    HasSubstr(fmt::format("was {} before the app applied it", change)));
    }
    EXPECT_EQ(reload->waitForExit(), 69);
    EXPECT_THAT(reload->lines(), testing::ElementsAre(HasSubstr("applied no change within 10 seconds")));
}

} // namespace
