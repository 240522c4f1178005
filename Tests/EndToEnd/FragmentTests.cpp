// A managed configuration in the system's folder, of several files.

#include "Tests/EndToEnd/ProgramTest.h"

namespace {

TEST_F(RootTest, CommandsNameTheFileOfEachValue)
{
    device.write(device.path("policy.json"), R"({"base_domain": "a.example", "api_key": "canary"})");
    checkAll(
        R"(
        exec 2>&1
        cd /etc/quorvane-mdm
        mkdir -m 755 managed.d
        echo '{"base_domain": "https://a.example", "device_id": "NONE"}' > managed.json
        printf '{\n"device_id": " DEV-1 "\n}' > managed.d/50.json
        echo '<plist><dict><key>OrganizationId</key><string>1</string></dict></plist>' > managed.d/10.plist
        echo half > managed.d/x.json~)",
        R"(qvctl config show | 0 | managed.d/50.json, which replaces the value in /etc/quorvane-mdm/managed.json
qvctl config show --managed-configuration managed.json | 0 | "NONE"\n
qvctl doctor --offline | 1 | device_id comes from 50.json, which replaces the value in managed.json
qvctl doctor --offline | 1 | Line 2 of /etc/quorvane-mdm/managed.d/50.json: device_id has leading
echo '{' > managed.json; qvctl doctor --offline | 1 | ok       policy.fragments 
chmod 666 managed.json; qvctl config show | 78 | managed.json: can be written by others
qvctl config set $DEVICE/policy.json | 0 | /etc/quorvane-mdm/managed.json: changed\n
mv managed.json managed.d/60.json; qvctl config set $DEVICE/policy.json | 0 | base_domain has no effect here: /etc/quorvane-mdm/managed.d/60.json replaces it
qvctl config set $DEVICE/policy.json --managed-configuration managed.d/20.json | 0 | 20.json: changed\n
qvctl config clear | 0 | /etc/quorvane-mdm/managed.d/50.json stays in effect
rm managed.json; qvctl doctor --offline | 1 | There is no policy file; all values come from /etc/quorvane-mdm/managed.d.
chmod 777 managed.d; qvctl config lint | 78 | managed.d: error: the folder is not trusted: /etc/quorvane-mdm/managed.d can be written by others
echo '{' > managed.d/60.json; qvctl config show | 78 | managed.d/60.json:2:1: ends
echo '{' > managed.d/60.json; qvctl config lint | 78 | device_id has leading or trailing white space; it is removed\n/etc/quorvane-mdm/managed.d/60.json:2:1: error: the file is invalid: ends before the object is complete; the app keeps the last valid content of this file
echo '{' > managed.d/60.json; qvctl doctor --offline | 1 | failed   policy.fragments          /etc/quorvane-mdm/managed.d/60.json:2:1
echo '{' > managed.d/60.json; qvctl doctor --offline | 1 | Start with policy.fragments.\n
echo '{' > managed.d/60.json; qvctl status | 0 | Policy file     /etc/quorvane-mdm/managed.d/60.json:2:1: ends before)");
}

TEST_F(RootTest, CommandsNameTheIgnoredFileAndBothCandidates)
{
    checkAll(R"(
        cd /etc/quorvane-mdm
        each_names() { # OPTION PATTERN
            for command in status 'config show' 'config explain' 'doctor --offline'; do
                qvctl $command $1 2>&1 | grep "$2" > /dev/null || { echo $command; exit 9; }
            done
        }
        neither="either $PWD/managed.plist nor $PWD/managed.json exists"
        write_both() { echo '{}' > managed.json; echo '<plist><dict/></plist>' > managed.plist; }
        ignored="$PWD/managed.json is ignored because $PWD/managed.plist exists")",
             R"(each_names '' "$neither" | 0
each_names --json "$neither\|managed.plist\",\"$PWD/managed.json" | 0
write_both; each_names '' "$ignored" | 0
write_both; each_names --json "$ignored\|\"ignored\":.\"$PWD/managed.json" | 0
write_both; echo '<plist>' > managed.plist; qvctl status |grep "$ignored" | 0
write_both; chmod 666 managed.plist; qvctl status |grep ignored | 1
write_both; chmod 666 managed.plist; qvctl status | 0 | managed.json (good)
write_both; chmod 666 managed.plist; qvctl config lint | 78 | it counts as missing
write_both; chmod 666 managed.plist; qvctl config clear > /dev/null; rmdir $PWD | 0)");
}

} // namespace
