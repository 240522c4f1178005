#include "Platform/Linux/DevicePaths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <pwd.h>
#include <string>
#include <unistd.h>
#include <utility>

using Platform::Linux::DevicePaths;

namespace {

/// Sets the variable, or unsets it if `value` is null. Returns the former value.
std::optional<std::string> exchangeVariable(const char* name, const char* value)
{
    const char* old = std::getenv(name);
    const auto former = old == nullptr ? std::nullopt : std::optional<std::string>(old);
    value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
    return former;
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
    for (const Case& row : cases) {
        const std::pair<const char*, const char*> variables[] = {
            {"XDG_DATA_HOME", row.dataHome}, {"HOME", row.home}, {"XDG_RUNTIME_DIR", row.runtime}};
        std::map<const char*, std::optional<std::string>> former;
        for (const auto& [name, value] : variables)
            former[name] = exchangeVariable(name, value);
        const DevicePaths paths = DevicePaths::fromEnvironment("/policy");
        EXPECT_EQ(paths.stateFolder, row.state);
        EXPECT_EQ(paths.pushSocket, row.socket);
        for (const auto& [name, value] : former)
            exchangeVariable(name, value ? value->c_str() : nullptr);
    }
}

} // namespace
