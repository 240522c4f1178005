// A managed configuration of several files.

#include "Tests/EndToEnd/ProgramTest.h"

#include <gmock/gmock.h>

#include <tuple>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

TEST_F(RootTest, CommandsNameTheFileOfEachValue)
{
    device.write(device.path("policy.json"), R"({"base_domain": "a.example", "api_key": "canary"})");
    const std::tuple<const char*, int, const char*> cases[] = {
        {"config show", 0, "managed.d/50.json, which replaces the value in /etc/quorvane-mdm/managed.json"},
        {"config show --managed-configuration managed.json", 0, "\"NONE\"\n"},
        {"doctor --offline", 1, "device_id comes from 50.json, which replaces the value in managed.json"},
        {"doctor --offline", 1, "Line 2 of /etc/quorvane-mdm/managed.d/50.json: device_id has leading"},
        {"status; echo '{' > managed.json; $QVCTL doctor --offline", 1, "ok       policy.fragments "},
        {"status; chmod 666 managed.json; $QVCTL config show", 78, "managed.json: can be written by others"},
        {"config set $DEVICE/policy.json", 0, "/etc/quorvane-mdm/managed.json: changed\n"},
        {"config set $DEVICE/policy.json --managed-configuration managed.d/20.json", 0, "20.json: changed\n"},
        {"config set $DEVICE/policy.json", 0,
         "base_domain has no effect here: /etc/quorvane-mdm/managed.d/20.json replaces it"},
        {"config clear", 0, "/etc/quorvane-mdm/managed.d/50.json stays in effect"},
        {"doctor --offline", 1, "There is no policy file; all values come from /etc/quorvane-mdm/managed.d."},
        // An unusable fragment.
        {"config show; echo '{' > managed.d/60.json; $QVCTL config show", 78, "managed.d/60.json:2:1: ends"},
        {"config lint", 78, "object is complete; the app keeps the last valid content of this file"},
        {"doctor --offline", 1, "failed   policy.fragments          /etc/quorvane-mdm/managed.d/60.json:2:1"},
        {"doctor --offline", 1, "Start with policy.fragments.\n"},
        {"status", 0, "Policy file     /etc/quorvane-mdm/managed.d/60.json:2:1: ends before"},
        {"status; chmod 777 managed.d; $QVCTL config lint", 78,
         "managed.d: error: the folder is not trusted: /etc/quorvane-mdm/managed.d can be written by others"},
    };
    std::string script = R"(
        exec 2>&1
        cd /etc/quorvane-mdm
        mkdir -m 755 managed.d
        echo '{"base_domain": "https://a.example", "device_id": "NONE"}' > managed.json
        printf '{\n"device_id": " DEV-1 "\n}' > managed.d/50.json
        echo '<plist><dict><key>OrganizationId</key><string>1</string></dict></plist>' > managed.d/10.plist
        echo half > managed.d/x.json~
    )";
    for (const auto& row : cases)
        script += std::string("echo ===; $QVCTL ") + std::get<0>(row) + "; echo \"exit $?\"\n";
    const std::string outputs = rootShell(script);
    constexpr std::string_view separator = "===\n";
    std::size_t begin = 0;
    for (const auto& [command, exitCode, part] : cases) {
        begin = outputs.find(separator, begin) + separator.size();
        const std::string output = outputs.substr(begin, outputs.find(separator, begin) - begin);
        EXPECT_THAT(output, AllOf(HasSubstr(part), HasSubstr("exit " + std::to_string(exitCode) + "\n"),
                                  Not(HasSubstr("canary"))))
            << command;
    }
}

} // namespace
