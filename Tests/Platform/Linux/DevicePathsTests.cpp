#include "Platform/Linux/DevicePaths.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

using Platform::Linux::DevicePaths;

namespace {

void setVariable(const char* name, const char* value)
{
    value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
}

TEST(DevicePathsTest, FollowTheEnvironment)
{
    const std::string home = std::string(::getpwuid(::geteuid())->pw_dir) + "/.local/share/quorvane-mdm";
    struct Case {
        const char* dataHome;
        const char* home;
        const char* runtime;
        std::string state;
        std::string socket;
    };
    const Case cases[] = {
        {"/data", "/home", "/run", "/data/quorvane-mdm", "/run/quorvane-mdm/push.sock"},
        {"data", "/home", "run", "/home/.local/share/quorvane-mdm",
         "/home/.local/share/quorvane-mdm/push.sock"},
        {"", "/home", "", "/home/.local/share/quorvane-mdm", "/home/.local/share/quorvane-mdm/push.sock"},
        {nullptr, "home", "/run", home, "/run/quorvane-mdm/push.sock"},
        {nullptr, nullptr, nullptr, home, home + "/push.sock"},
    };
    const auto printPaths = [](const Case& row) {
        setVariable("XDG_DATA_HOME", row.dataHome);
        setVariable("HOME", row.home);
        setVariable("XDG_RUNTIME_DIR", row.runtime);
        setVariable("QUORVANE_MANAGED_CONFIGURATION", ""); // Counts as unset.
        const DevicePaths paths = DevicePaths::fromEnvironment({});
        std::fprintf(stderr, "%s and %s, policy %s", paths.stateFolder.c_str(), paths.pushSocket.c_str(),
                     paths.policy.files.at(0).c_str());
        std::_Exit(0);
    };
    // In a process of its own, since it changes the environment.
    for (const Case& row : cases)
        EXPECT_EXIT(printPaths(row), testing::ExitedWithCode(0),
                    "^" + row.state + " and " + row.socket + ", policy /etc/quorvane-mdm/managed.plist$");
}

} // namespace
