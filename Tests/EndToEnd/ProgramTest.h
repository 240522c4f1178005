#pragma once

#include "Tools/Tour/ThrowawayDevice.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

/// The real programs on a device of the test's own.
class ProgramTest : public testing::Test {
protected:
    struct Outcome {
        std::optional<int> exitCode;
        std::string output;
    };
    [[nodiscard]] Outcome qvctl(const std::vector<std::string>& arguments) const
    {
        return outcomeOf(*device.startConsole(arguments));
    }
    /// Runs a script of bash; see `ThrowawayDevice::startShell`.
    [[nodiscard]] Outcome shell(const std::string& script) const
    {
        return outcomeOf(*device.startShell(script));
    }
    [[nodiscard]] boost::json::object qvctlJSON(std::vector<std::string> arguments) const
    {
        arguments.emplace_back("--json");
        const Outcome outcome = qvctl(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
        EXPECT_EQ(outcome.output.substr(0, 1), "{") << outcome.output;
        return boost::json::parse(outcome.output).as_object();
    }
    ThrowawayDevice device{QV_PROGRAMS};

private:
    static Outcome outcomeOf(ChildProcess& process)
    {
        Outcome outcome{process.waitForExit(), {}};
        for (const std::string& line : process.lines())
            outcome.output += line + "\n";
        return outcome;
    }
};
