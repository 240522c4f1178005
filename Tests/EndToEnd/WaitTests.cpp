#include "Tests/EndToEnd/ProgramTest.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>

namespace json = boost::json;
using testing::HasSubstr;
using testing::Not;

namespace {

class WaitTest : public ProgramTest {
protected:
    /// Starts the app with `policy` and waits until it is applied.
    [[nodiscard]] std::unique_ptr<ChildProcess> startWith(std::string_view policy)
    {
        device.replacePolicy(policy);
        auto application = device.startApplication({"--log-stderr", "--push", "off"});
        EXPECT_TRUE(application->waitForLine("Configuration manager initialized"));
        return application;
    }

    const char* first = R"({"device_id": "canary-1"})";
    const char* second = R"({"device_id": "canary-2"})";
};

TEST_F(WaitTest, RejectsImpossibleOptions)
{
    device.write(device.path("policy.json"), first);
    for (const char* arguments :
         {"wait --timeout -1", "wait --timeout nan", "wait --timeout ''", "wait --timeout 1s",
          "wait --timeout", "wait --applied --uploaded", "wait --version 1 --applied", "wait --version 0",
          "wait --version x", "wait applied", "config set $DEVICE/policy.json --timeout 1",
          "status --check applied,,running", "status --check=bogus"}) {
        const Outcome outcome = shell(std::string("$QVCTL ") + arguments);
        EXPECT_EQ(outcome.exitCode, 64) << arguments << outcome.output;
    }
    EXPECT_EQ(shell("ls $DEVICE/policy/* 2>/dev/null").output, "");
}

TEST_F(WaitTest, EndsAccordingToWhatIsStored)
{
    struct Case {
        const char* name;
        const char* policy;
        const char* command;
        int exitCode;
        const char* output;
    };
    const char* unchanged = nullptr;
    const Case withoutApp[] = {
        {"no policy file", unchanged, "wait --timeout 0", 75, "there is no policy file: "},
        {"nothing applied", first, "wait --timeout 0", 75,
         "no configuration was applied yet; the app is not"},
        {"nothing applied", unchanged, "wait --version 1 --timeout 0.2", 75,
         "no configuration was applied yet"},
        {"nothing uploaded", unchanged, "wait --uploaded --timeout 0", 75,
         "no configuration was applied yet"},
        {"malformed", "{", "wait --timeout 0", 78, "managed.json:1:2: "},
        {"malformed", "{", "wait --timeout 1e300", 78, "the policy file cannot be applied: "},
        {"malformed", "{", "wait", 78, "managed.json:1:2: "},
        {"malformed", "{", "wait --version 1 --timeout 0", 75, "no configuration was applied yet"},
        {"not running", unchanged, "status --check running", 1,
         "check running   not met: the app is not running"},
        {"malformed", "{", "status --check applied", 1, "check applied   not met: the policy file cannot be"},
    };
    const Case withApp[] = {
        {"applied", unchanged, "wait", 0, "Version 1 is applied."},
        {"applied", unchanged, "wait --applied --timeout 0", 0, "Version 1 is applied."},
        {"applied", unchanged, "wait --version 1 --timeout 1e300", 0, "Version 1 is applied."},
        {"applied", unchanged, "wait --timeout 0 --json", 0,
         R"({"version":1,"isMet":true,"configVersion":1})"},
        {"later", unchanged, "wait --version 2 --timeout 0.3", 75, "the applied configuration has version 1"},
        {"later", unchanged, "wait --version 2 --timeout 0 --json", 75,
         R"("isMet":false,"configVersion":1,"error":)"},
        {"not uploaded", unchanged, "wait --uploaded --timeout 0", 75, "because base_domain is not set"},
        {"changed", second, "wait --timeout 0", 75, "differs from the policy file in device_id"},
        {"changed", unchanged, "wait --timeout 20", 0, "Version 2 is applied."},
        {"checked", unchanged, "status --check=applied,running", 0, "check applied   met"},
        {"checked", unchanged, "status --check", 1,
         "check uploaded  not met: no device token is uploaded because"},
        {"checked", unchanged, "status --check --json", 1,
         R"("conditions":[{"name":"applied","isMet":true,"reason":null},{"name":"running","isMet":true,)"},
        {"removed", "", "wait --timeout 0", 78, "the policy file cannot be applied: "},
    };
    const auto check = [this](const Case& row) {
        SCOPED_TRACE(std::string(row.name) + ": " + row.command);
        if (row.policy != nullptr)
            device.replacePolicy(row.policy);
        const auto begin = std::chrono::steady_clock::now();
        const Outcome outcome = shell(std::string("$QVCTL ") + row.command);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << outcome.output;
        EXPECT_THAT(outcome.output, HasSubstr(row.output));
        EXPECT_THAT(outcome.output, Not(HasSubstr("canary")));
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    };
    for (const Case& row : withoutApp)
        check(row);
    const auto application = startWith(first);
    for (const Case& row : withApp)
        check(row);
}

TEST_F(WaitTest, WaitsForAnAppThatStartsLater)
{
    const auto wait = device.startConsole({"wait", "--timeout", "20"});
    ASSERT_TRUE(wait->waitForLine("the app is not running; waiting for it"));
    // Nothing else is printed while the policy file changes.
    device.replacePolicy("{");
    device.replacePolicy(first);
    device.replacePolicy(second);
    const auto application = startWith(first);
    EXPECT_EQ(wait->waitForExit(), 0);
    EXPECT_THAT(wait->lines(), testing::ElementsAre(HasSubstr("waiting for it"), "Version 1 is applied."));
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
    const Outcome changed = qvctl(set);
    EXPECT_EQ(changed.exitCode, 0);
    EXPECT_THAT(changed.output, testing::EndsWith("managed.json: changed\nThe app has applied it.\n"));
    const Outcome again = qvctl(set);
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_THAT(again.output, testing::EndsWith("managed.json: unchanged\nThe app has applied it.\n"));
    EXPECT_EQ(qvctlJSON({"status"}).at("configVersion"), 2);

    // Another administrator replaces the file before the app has seen it.
    application->signal(SIGSTOP);
    device.write(device.path("first.json"), R"({"device_id": "canary-3"})");
    const auto overtaken = device.startConsole(set);
    ASSERT_TRUE(overtaken->waitForLine("changed"));
    device.replacePolicy(second);
    EXPECT_EQ(overtaken->waitForExit(), 1);
    EXPECT_THAT(overtaken->lines().back(), HasSubstr("was replaced before the app applied it"));
}

} // namespace
