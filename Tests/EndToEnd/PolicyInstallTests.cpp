// The commands that check and install a policy file, also as root in folders of other users.

#include "Tests/EndToEnd/ProgramTest.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

/// Defines functions that run commands as root and as user 65534.
constexpr const char* twoUsers = R"(
    [ $(id -u) = 0 ] && setpriv --reuid 65534 --clear-groups true || exit 77
    as_user() { setpriv --reuid 65534 --clear-groups -- "$@"; }
    folder=$DEVICE/shared
    mkdir $folder
    chmod 755 $DEVICE $folder
    echo '{"api_key": "canary"}' > $DEVICE/policy.json
    owner_and_mode() { stat -c '%u %a' "$1" 2>&1; }
    set_policy() { $QVCTL config set $DEVICE/policy.json --managed-configuration "$1" 2>&1; echo "exit $?"; }
    clear_policy() { $QVCTL config clear --managed-configuration "$1" 2>&1; echo "exit $?"; }
)";
constexpr int unsupported = 77;

TEST_F(ProgramTest, LintReadsFilesAndStreams)
{
    device.write(device.path("good.json"), R"({"base_domain": "https://a.b"})");
    device.write(device.path("bad.json"), R"({"api_key": ["canary"]})");
    struct Case {
        const char* command;
        int exitCode;
        const char* output;
    };
    const Case cases[] = {
        {"config lint good.json bad.json good.json", 78,
         "good.json: no problems found\nbad.json:1:13: error: api_key has the wrong type: ********"},
        {"config lint none.json good.json", 66, "none.json: no such file\ngood.json: no problems"},
        {"config lint bad.json none.json", 78, "none.json: no such file"},
        {"config lint --json bad.json good.json | grep -c '^{\"version\":1,\"path\"'", 78, "2\n"},
        {"config lint --json none.json", 66, R"({"version":1,"path":"none.json","error":")"},
        {"config lint - < bad.json", 78, "-:1:13: error: api_key"},
        {"config lint /dev/stdin < good.json", 0, "/dev/stdin: no problems"},
        {"config lint <(sleep 0.1; cat bad.json)", 78, ":1:13: error: api_key"},
        {"config lint - < /dev/null", 78, "is empty"},
        {"config lint /dev/zero", 78, "/dev/zero: error"},
        {"config lint .", 66, "is not a regular file"},
        {"config explain - < good.json", 0, "https://a.b"},
        {"config lint ''", 64, "FILE: the file name is empty"},
        {"config lint good.json ''", 64, "FILE: the file name is empty"},
        {"config explain ''", 64, "FILE: the file name is empty"},
        {"config set ''", 64, "FILE: the file name is empty"},
        {"push ''", 64, "FILE: the file name is empty"},
        {"config show --managed-configuration '' --json", 64, R"({"version":1,"error":"--managed-conf)"},
    };
    for (const Case& row : cases) {
        const Outcome outcome = shell(std::string("set -o pipefail; cd $DEVICE; $QVCTL ") + row.command);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << row.command << outcome.output;
        EXPECT_THAT(outcome.output, HasSubstr(row.output)) << row.command;
    }
}

TEST_F(ProgramTest, SetRefusesFilesWithLintErrors)
{
    device.write(device.path("bad.json"), R"({"api_key": ["canary"], "device_id": " D "})");
    device.write(device.path("good.json"), R"({"api_key": "canary", "device_id": " D "})");
    device.write(device.path("half.json"), R"({"api_key": )");
    struct Case {
        const char* arguments;
        int exitCode;
        const char* output;
        /// The installed content afterwards.
        const char* file;
    };
    const Case cases[] = {
        {"good.json", 0, "good.json:1:36: note: device_id has leading or trailing white space", "good.json"},
        {"bad.json", 78, "bad.json:1:13: error: api_key has the wrong type: ********", "good.json"},
        {"bad.json", 78, "bad.json was not installed: fix its errors, or install it anyway with --force",
         "good.json"},
        {"bad.json --json", 78, R"("outcome":"refused","findings":[{"severity":"error")", "good.json"},
        {"half.json", 78, "half.json:1:13: error: the file is invalid", "good.json"},
        {"half.json --force", 78, "half.json was not installed: it cannot be parsed", "good.json"},
        {"good.json", 0, "managed.json: unchanged", "good.json"},
        {"good.json --json", 0, R"("outcome":"unchanged")", "good.json"},
        {"bad.json --force", 0, "managed.json: changed", "bad.json"},
        {"- < good.json", 0, "managed.json: changed", "good.json"},
        {"good.json; chmod 640 $QUORVANE_MANAGED_CONFIGURATION; $QVCTL config set good.json", 0,
         "managed.json: changed", "good.json"},
    };
    for (const Case& row : cases) {
        const Outcome outcome = shell(std::string("cd $DEVICE; $QVCTL config set ") + row.arguments);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << row.arguments << outcome.output;
        EXPECT_THAT(outcome.output, HasSubstr(row.output)) << row.arguments;
        EXPECT_THAT(outcome.output, testing::Not(HasSubstr("canary"))) << row.arguments;
        EXPECT_EQ(shell(std::string("cmp $QUORVANE_MANAGED_CONFIGURATION $DEVICE/") + row.file).exitCode, 0)
            << row.arguments;
    }
    EXPECT_EQ(shell("ls -A $DEVICE/policy").output, "managed.json\n") << "a temporary file was left behind";
}

TEST_F(ProgramTest, PolicyInstalledByRootIsReadableWithAnyUmask)
{
    const auto outcome = shellWithOwnPolicyFolder(R"(
        folder=/etc/quorvane-mdm
        echo '{"device_id": "DEV-1"}' > $DEVICE/policy.json
        echo '<plist><dict><key>device_id</key><string>DEV-2</string></dict></plist>' > $DEVICE/policy.plist
        try() { # NAME SOURCE
            $QVCTL config set $DEVICE/$2 | sed "s/^/$1: /"
            stat -c '%a' $folder $folder/* | paste -s -d ' '
        }
        rmdir $folder; umask 077; try missing policy.json
        chmod 700 $folder; chmod 600 $folder/managed.json; umask 0; try closed policy.json
        chmod 6755 $folder/managed.json; try 'set user' policy.json
        chmod 600 $DEVICE/policy.plist; umask 027; try 'other format' policy.plist
        ln -sf $DEVICE/policy.plist $folder/managed.plist; try link policy.plist
        mkfifo $folder/managed.json; try pipe policy.plist
        try 'no change' policy.plist
        chmod 700 $folder; try 'closed again' policy.plist
        rm $folder/*; mkdir $folder/managed.json; try folder policy.plist 2>&1
        $QVCTL config clear 2>&1; ls -d $folder/managed.json
    )");
    if (!outcome)
        GTEST_SKIP() << "needs root and a mount namespace";
    EXPECT_EQ(outcome->output, R"(missing: /etc/quorvane-mdm/managed.json: changed
755 644
closed: /etc/quorvane-mdm/managed.json: changed
755 644
set user: /etc/quorvane-mdm/managed.json: changed
755 644
other format: /etc/quorvane-mdm/managed.plist: changed
755 644
link: /etc/quorvane-mdm/managed.plist: changed
755 644
pipe: /etc/quorvane-mdm/managed.plist: changed
755 644
no change: /etc/quorvane-mdm/managed.plist: unchanged
755 644
closed again: /etc/quorvane-mdm/managed.plist: changed
755 644
qvctl: nothing was changed: /etc/quorvane-mdm/managed.json is a folder; move it away
755 750
qvctl: nothing was changed: /etc/quorvane-mdm/managed.json is a folder; move it away
/etc/quorvane-mdm/managed.json
)");
}

TEST_F(ProgramTest, RootChangesNothingInFoldersOfOtherUsers)
{
    const Outcome outcome = shell(std::string(twoUsers) + R"sh(
        chown 65534 $folder
        mkdir $DEVICE/roots
        echo root > $DEVICE/roots/managed.json
        as_user ln -s $DEVICE/roots $folder/link
        as_user mkdir $folder/empty
        as_user sh -c "echo {} > $folder/theirs.json; chmod 6755 $folder/theirs.json"
        for place in managed.json new/managed.json theirs.json link/managed.json empty; do
            echo "$place: $(set_policy $folder/$place | tail -n 1) $(clear_policy $folder/$place | tail -n 1)"
        done
        owner_and_mode $folder/theirs.json
        cat $DEVICE/roots/managed.json
        ls $folder
        grep -rl canary $folder $DEVICE/roots
        set_policy $folder/theirs.json
    )sh");
    if (outcome.exitCode == unsupported)
        GTEST_SKIP() << "needs root";
    EXPECT_THAT(outcome.output, testing::MatchesRegex(R"(managed.json: exit 78 exit 78
new/managed.json: exit 78 exit 78
theirs.json: exit 78 exit 78
link/managed.json: exit 78 exit 78
empty: exit 64 exit 64
65534 6755
root
empty
link
theirs.json
qvctl: nothing was changed: the app would not trust a policy file in [^ ]*/shared: [^ ]*/shared belongs to user 65534: .*
exit 78
)"));
}

TEST_F(ProgramTest, PolicyInstalledByAUserIsPrivate)
{
    const Outcome outcome = shell(std::string(twoUsers) + R"(
        chmod 1777 $folder # As /tmp.
        umask 0
        as_user $QVCTL config set $DEVICE/policy.json --managed-configuration $folder/sub/folder/own.json
        for entry in $folder/sub $folder/sub/folder $folder/sub/folder/own.json; do
            echo $(owner_and_mode $entry)
        done
        umask 077
        as_user sh -c "echo {} > $folder/theirs.json"
        set_policy $folder/theirs.json
        owner_and_mode $folder/theirs.json
        mkdir $DEVICE/closed
        set_policy $DEVICE/closed/managed.json
        as_user mkdir $folder/writable
        as_user chmod 775 $folder/writable
        as_user $QVCTL config set $DEVICE/policy.json --managed-configuration $folder/writable/own.json
    )");
    if (outcome.exitCode == unsupported)
        GTEST_SKIP() << "needs root";
    EXPECT_THAT(outcome.output, testing::MatchesRegex(R"([^ ]*/own.json: changed
65534 700
65534 700
65534 600
[^ ]*/theirs.json: changed
exit 0
0 644
qvctl: other users cannot enter [^ ]*/closed, so their apps do not find the policy file; run: chmod .*
[^ ]*/closed/managed.json: changed
exit 0
qvctl: nothing was changed: .*/writable can be written by others \(mode 0775\).*
)"));
}

} // namespace
