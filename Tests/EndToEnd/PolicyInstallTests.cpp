// The installation of a policy file by root and by users, in folders of both.

#include "Tests/EndToEnd/ProgramTest.h"

namespace {

/// Creates a folder and a policy to install, and defines functions for both.
constexpr const char* sharedFolder = R"(
    folder=$DEVICE/shared
    mkdir $folder
    echo '{"api_key": "canary"}' > $DEVICE/policy.json
    owner_and_mode() { stat -c '%u %a' "$@"; }
    set_policy() { $QVCTL config set $DEVICE/policy.json --managed-configuration "$1" 2>&1; echo "exit $?"; }
    clear_policy() { $QVCTL config clear --managed-configuration "$1" 2>&1; echo "exit $?"; }
)";

TEST_F(RootTest, PolicyInstalledByRootIsReadableWithAnyUmask)
{
    const std::string output = runScript(R"(
        folder=/etc/quorvane-mdm
        echo '{"device_id": "DEV-1"}' > $DEVICE/policy.json
        echo '<plist><dict><key>device_id</key><string>DEV-2</string></dict></plist>' > $DEVICE/policy.plist
        try() { # NAME SOURCE
            echo $1: $($QVCTL config set $DEVICE/$2 2>&1; stat -c '%a' $folder $folder/*)
        }
        rmdir $folder; umask 077; try missing policy.json
        chmod 700 $folder; chmod 600 $folder/managed.json; umask 0; try closed policy.json
        chmod 6755 $folder/managed.json; try 'set user' policy.json
        chmod 600 $DEVICE/policy.plist; umask 027; try 'other format' policy.plist
        (ulimit -f 0; try 'no space' policy.json)
        ln -sf $DEVICE/policy.plist $folder/managed.plist; try link policy.plist
        mkfifo $folder/managed.json; try pipe policy.plist
        try 'no change' policy.plist
        chmod 700 $folder; try 'closed again' policy.plist
        rm $folder/*; mkdir $folder/managed.json; try folder policy.plist
        $QVCTL config clear 2>&1
    )")
                                   .output;
    EXPECT_EQ(output, R"(missing: /etc/quorvane-mdm/managed.json: changed 755 644
closed: /etc/quorvane-mdm/managed.json: changed 755 644
set user: /etc/quorvane-mdm/managed.json: changed 755 644
other format: /etc/quorvane-mdm/managed.plist: changed 755 644
no space: qvctl: /etc/quorvane-mdm/managed.json: File too large 755 644
link: /etc/quorvane-mdm/managed.plist: changed 755 644
pipe: /etc/quorvane-mdm/managed.plist: changed 755 644
no change: /etc/quorvane-mdm/managed.plist: unchanged 755 644
closed again: /etc/quorvane-mdm/managed.plist: changed 755 644
folder: qvctl: nothing was changed: /etc/quorvane-mdm/managed.json is a folder; move it away 755 750
qvctl: nothing was changed: /etc/quorvane-mdm/managed.json is a folder; move it away
)");
}

TEST_F(RootTest, RootChangesNothingInFoldersOfOtherUsers)
{
    const std::string output = runScript(std::string(sharedFolder) + R"sh(
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
    )sh")
                                   .output;
    EXPECT_THAT(output, testing::MatchesRegex(R"(managed.json: exit 78 exit 78
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

TEST_F(RootTest, PolicyInstalledByAUserIsPrivate)
{
    const std::string output = runScript(std::string(sharedFolder) + R"(
        chmod 1777 $folder # As /tmp.
        umask 0
        as_user $QVCTL config set $DEVICE/policy.json --managed-configuration $folder/sub/folder/own.json
        echo $(owner_and_mode $folder/sub $folder/sub/folder $folder/sub/folder/own.json)
        umask 077
        as_user sh -c "echo {} > $folder/theirs.json"
        set_policy $folder/theirs.json
        owner_and_mode $folder/theirs.json
        mkdir $DEVICE/closed
        set_policy $DEVICE/closed/managed.json
        as_user mkdir $folder/writable
        as_user chmod 775 $folder/writable
        as_user $QVCTL config set $DEVICE/policy.json --managed-configuration $folder/writable/own.json
    )")
                                   .output;
    EXPECT_THAT(output, testing::MatchesRegex(R"([^ ]*/own.json: changed
65534 700 65534 700 65534 600
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
