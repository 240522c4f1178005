#include "Platform/Linux/DevicePaths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <pwd.h>
#include <string>
#include <unistd.h>

using Platform::Linux::DevicePaths;

namespace {

/// Sets variables while it exists; a null value unsets one.
class Environment {
public:
    explicit Environment(const std::map<const char*, const char*>& variables)
    {
        for (const auto& [name, value] : variables) {
            const char* old = std::getenv(name);
            m_previous[name] = old == nullptr ? std::nullopt : std::optional<std::string>(old);
            value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
        }
    }
    ~Environment()
    {
        for (const auto& [name, value] : m_previous)
            value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    std::map<const char*, std::optional<std::string>> m_previous;
};

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
        const Environment environment(
            {{"XDG_DATA_HOME", row.dataHome}, {"HOME", row.home}, {"XDG_RUNTIME_DIR", row.runtime}});
        const DevicePaths paths = DevicePaths::fromEnvironment("/policy");
        EXPECT_EQ(paths.stateFolder, row.state);
        EXPECT_EQ(paths.pushSocket, row.socket);
    }
}

} // namespace
