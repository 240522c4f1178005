#include "Tests/EndToEnd/ProgramTest.h"
#include "Tools/Backend/TestBackend.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace fs = std::filesystem;
using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::Key;
using testing::Not;
using testing::Pair;

namespace {

constexpr std::string_view apiKey = "canary-key-5b1d";

struct Program {
    const char* command;
    /// Once the program has printed `count` lines that contain this, the key is in its memory.
    const char* line;
    int count;
};

constexpr Program programs[] = {
    {"App/quorvane-mdm --log-stderr", " info com.quorvane.mdm general ", 3},
    {"Tools/qvctl/qvctl watch --json --reveal", "DEV-1", 1},
};

class ProcessSecretsTest : public ProgramTest {
protected:
    /// Starts the program in a folder where it may dump core, and aborts it once the key is in its memory.
    /// Returns the content of its /proc/PID/limits.
    [[nodiscard]] std::string crash(const Program& program, const char* profile)
    {
        device.setEnvironment("QUORVANE_LOG_PRIVATE_DATA", profile);
        fs::remove_all(device.path("crash"));
        fs::create_directory(device.path("crash"));
        const auto process =
            device.startShell("cd \"$DEVICE/crash\" && ulimit -c unlimited && exec \"$PROGRAMS\"/" +
                              std::string(program.command));
        for (int i = 0; i < program.count; ++i)
            EXPECT_TRUE(process->waitForLine(program.line));
        std::string limits = ThrowawayDevice::read(fmt::format("/proc/{}/limits", process->processId()));
        process->signal(SIGABRT);
        EXPECT_EQ(process->waitForExit(), -SIGABRT);
        return limits;
    }

    [[nodiscard]] bool isKeyInCoreDump() const
    {
        const fs::directory_iterator files(device.path("crash"));
        return std::any_of(begin(files), end(files), [](const auto& entry) {
            return ThrowawayDevice::read(entry.path()).find(apiKey) != std::string::npos;
        });
    }
};

TEST_F(ProcessSecretsTest, CoreDumpsNeedTheDevelopmentProfile)
{
    device.replacePolicy(fmt::format(R"({{"api_key": "{}", "device_id": "DEV-1"}})", apiKey));
    for (const Program& program : programs) {
        // With a limit of 1 the kernel dumps neither to a file nor to a program.
        EXPECT_THAT(crash(program, "redact"), ContainsRegex("Max core file size +1 +1 ")) << program.command;
        EXPECT_FALSE(isKeyInCoreDump()) << program.command;
    }
    for (const Program& program : programs) {
        EXPECT_THAT(crash(program, "show"), Not(ContainsRegex("Max core file size +1 "))) << program.command;
        if (!isKeyInCoreDump())
            GTEST_SKIP() << "this machine writes no core dumps into the working folder";
    }
}

TEST_F(ProcessSecretsTest, OnlyTheBackendReceivesTheKey)
{
    TestBackend backend({.folder = device.path("run")});
    device.replacePolicy(fmt::format(R"({{"base_domain": "{}/mdm", "api_key": "{}", "device_id": "DEV-1"}})",
                                     backend.baseURL(), apiKey));
    device.setEnvironment("SSL_CERT_FILE", backend.certificateAuthority());
    device.setEnvironment("no_proxy", "*");
    device.setEnvironment("SSLKEYLOGFILE", device.path("session-keys"));
    backend.setReply(
        "*", {.status = 307,
              .headerFields = {{"Location", fmt::format("https://127.0.0.1:{}/other", backend.port())}}});
    backend.setReply("/other", {});
    const auto application = startRegistered();
    ASSERT_TRUE(application->waitForLine("Device token uploaded"));
    EXPECT_FALSE(fs::exists(device.path("session-keys")));

    const auto requests = backend.takeRequests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].method + " " + requests[0].target,
              "POST /mdm/apis/mdm/backend/device-api/v1/device/apple/devices/DEV-1/token");
    EXPECT_THAT(requests[0].headerFields,
                AllOf(Contains(Pair("Authorization", fmt::format("Bearer {}", apiKey))),
                      Contains(Pair("X-Device-Id", "DEV-1")),
                      Contains(Pair("Content-Type", "application/json"))));
    EXPECT_EQ(requests[1].target, "/other");
    EXPECT_THAT(requests[1].headerFields,
                Not(Contains(Key(AnyOf("Authorization", "X-Device-Id", "X-QV-OrgId", "Cookie")))));
}

} // namespace
