#pragma once

#include "Tests/Fakes/TextTable.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <boost/algorithm/string/replace.hpp>
#include <boost/json.hpp>
#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <vector>

/// Runs the real programs on a throw-away device.
class ProgramTest : public testing::Test {
protected:
    /// `programs` is the build folder.
    explicit ProgramTest(const std::filesystem::path& programs = QV_PROGRAMS) : device(programs) {}

    struct Outcome {
        std::optional<int> exitCode;
        std::string output;
    };
    [[nodiscard]] Outcome qvctl(const std::vector<std::string>& arguments) const
    {
        return outcomeOf(*device.startConsole(arguments));
    }
    /// Runs a bash script; see `ThrowawayDevice::startShell`.
    [[nodiscard]] Outcome shell(const std::string& script) const
    {
        return outcomeOf(*device.startShell(script));
    }
    /// Runs the scripts of a table, each after `begin`; `qvctl` is the console. A row is a bash script, in
    /// which no space follows a pipe, its exit code and part of its output, where \n is a line break. The
    /// output must not contain "canary".
    void checkAll(const std::string& begin, const std::string& table) const
    {
        for (const auto& row : rowsOf(table)) {
            SCOPED_TRACE(row.at(0));
            const Outcome outcome = runScript("qvctl() { $QVCTL \"$@\"; }\n" + begin + "\n" + row.at(0));
            EXPECT_EQ(outcome.exitCode, std::stoi(row.at(1))) << outcome.output;
            const std::string part = boost::replace_all_copy(row.size() > 2 ? row[2] : "", "\\n", "\n");
            EXPECT_THAT(outcome.output, testing::HasSubstr(part));
            EXPECT_THAT(outcome.output, testing::Not(testing::HasSubstr("canary")));
        }
    }
    [[nodiscard]] boost::json::object qvctlJSON(std::vector<std::string> arguments) const
    {
        arguments.emplace_back("--json");
        const Outcome outcome = qvctl(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
        EXPECT_EQ(outcome.output.substr(0, 1), "{") << outcome.output;
        return boost::json::parse(outcome.output).as_object();
    }
    static constexpr const char* ready = "Configuration manager initialized";

    /// Starts the app and waits for a line of its log.
    [[nodiscard]] std::unique_ptr<ChildProcess>
    startUntil(std::string_view line, const std::vector<std::string>& arguments = {"--log-stderr"}) const
    {
        auto application = device.startApplication(arguments);
        EXPECT_TRUE(application->waitForLine(line)) << testing::PrintToString(application->lines());
        return application;
    }
    /// Starts the app with local pushes, completes the welcome screen and allows notifications.
    [[nodiscard]] std::unique_ptr<ChildProcess> startRegistered() const
    {
        auto application = device.startApplication({"--log-stderr", "--push", "local"});
        allowNotifications();
        EXPECT_TRUE(application->waitForLine("Remote notifications registered"));
        return application;
    }
    void allowNotifications() const
    {
        const DrivenWindow window = device.window();
        window.tap("welcome.getStarted");
        window.tap("shell.allow");
    }

    ThrowawayDevice device;

private:
    [[nodiscard]] virtual Outcome runScript(const std::string& script) const { return shell(script); }
    static Outcome outcomeOf(ChildProcess& process)
    {
        Outcome outcome{process.waitForExit(), {}};
        for (const std::string& line : process.lines())
            outcome.output += line + "\n";
        return outcome;
    }
};

/// Tests that need a second user or the system's policy folder. Skipped without root or a mount namespace.
class RootTest : public ProgramTest {
protected:
    void SetUp() override
    {
        if (shell("[ $(id -u) = 0 ] && unshare -m setpriv --reuid 65534 --clear-groups true").exitCode != 0)
            GTEST_SKIP() << "needs root and a mount namespace";
    }
    /// Runs a bash script with a private /etc that contains only the system's users and the empty folder
    /// quorvane-mdm. `as_user COMMAND...` runs a command as the user nobody.
    [[nodiscard]] Outcome runScript(const std::string& script) const override
    {
        return shell("unset QUORVANE_MANAGED_CONFIGURATION\n"
                     "export USERS=$(cat /etc/passwd) SCRIPT=$(cat << 'END'\n" +
                     script +
                     "\nEND\n)\n"
                     "as_user() { setpriv --reuid 65534 --clear-groups -- \"$@\"; }\n"
                     "export -f as_user; chmod 755 $DEVICE\n"
                     "exec unshare -m bash -c 'mount -t tmpfs -o mode=755 tmpfs /etc && "
                     "mkdir -m 755 /etc/quorvane-mdm && echo \"$USERS\" > /etc/passwd && eval \"$SCRIPT\"'");
    }
};
