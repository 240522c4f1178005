// The installation of a policy file by root and by users, in folders of both.

#include "Tests/EndToEnd/ProgramTest.h"

namespace {

TEST_F(RootTest, PolicyInstalledByRootIsReadableWithAnyUmask)
{
    checkAll(R"(
        exec 2>&1
        folder=/etc/quorvane-mdm
        echo '{"device_id": "DEV-1"}' | tee $DEVICE/policy.json > $folder/managed.json
        echo '<plist><dict><key>device_id</key><string>DEV-2</string></dict></plist>' > $DEVICE/policy.plist
        chmod 600 $DEVICE/policy.plist $folder/managed.json
        try() { qvctl config set $DEVICE/policy.$1; echo "exit $?"; stat -c %a $folder $folder/* |xargs; })",
             R"(rm -r $folder; umask 077; try json | 0 | /managed.json: changed\nexit 0\n755 644\n
chmod 700 $folder; umask 0; try json | 0 | /managed.json: changed\nexit 0\n755 644\n
try json; try json | 0 | /managed.json: unchanged\nexit 0\n755 644\n
try json; chmod 6755 $folder/*; try json | 0 | 644\n/etc/quorvane-mdm/managed.json: changed\nexit 0\n755 644\n
try json; chmod 2755 $folder; try json | 0 | 644\n/etc/quorvane-mdm/managed.json: changed\nexit 0\n755 644\n
umask 027; try plist | 0 | /managed.plist: changed\nexit 0\n755 644\n
(ulimit -f 0; try plist) | 0 | qvctl: /etc/quorvane-mdm/managed.plist: File too large\nexit 69\n755 600\n
rm $folder/*; ln -s $DEVICE $folder/managed.plist; ln -s none $folder/managed.json; try plist | 0 | /managed.plist: changed\nexit 0\n755 644\n
rm $folder/*; mkfifo $folder/managed.json; try plist | 0 | /managed.plist: changed\nexit 0\n755 644\n
rm $folder/*; mkdir -m 750 $folder/managed.json; try plist | 0 | /managed.json is a folder; move it away\nexit 78\n755 750\n
rm $folder/*; mkdir $folder/managed.json; qvctl config clear | 78 | /managed.json is a folder; move it away)");
}

/// Creates a policy to install and an empty folder for it.
constexpr const char* sharedFolder = R"(
    exec 2>&1
    folder=$DEVICE/shared
    rm -rf $folder; mkdir $folder; cd $folder
    echo '{"api_key": "canary"}' > $DEVICE/policy.json
    set_policy() { $QVCTL config set $DEVICE/policy.json --managed-configuration $folder/$1; }
    clear_policy() { $QVCTL config clear --managed-configuration $folder/$1; }
)";

TEST_F(RootTest, RootChangesNothingInFoldersOfOtherUsers)
{
    checkAll(std::string(sharedFolder) + R"sh(
        mkdir -p $DEVICE/roots; echo root > $DEVICE/roots/managed.json
        chown 65534 $folder
        as_user ln -s $DEVICE/roots link
        as_user sh -c "echo {} > theirs.json; chmod 6755 theirs.json"
        unchanged() { cat theirs.json link/managed.json; stat -c '%u %a' theirs.json; ls |xargs; })sh",
             R"(set_policy managed.json | 78 | the app would not trust a policy file in 
clear_policy managed.json | 78
set_policy new/managed.json; unchanged | 0 | shared belongs to user 65534: 
set_policy theirs.json; unchanged | 0 | \n{}\nroot\n65534 6755\nlink theirs.json\n
clear_policy theirs.json; unchanged | 0 | \n{}\nroot\n65534 6755\nlink theirs.json\n
set_policy link/managed.json; unchanged | 0 | \n{}\nroot\n65534 6755\nlink theirs.json\n
clear_policy link/managed.json; unchanged | 0 | \n{}\nroot\n65534 6755\nlink theirs.json\n
as_user mkdir empty; set_policy empty | 64
as_user mkdir empty; clear_policy empty | 64)");
}

TEST_F(RootTest, PolicyInstalledByAUserIsPrivate)
{
    checkAll(
        std::string(sharedFolder) + R"(
        chmod 1777 $folder # As /tmp.
        umask 077
        export -f set_policy; export folder
        by_user() { as_user bash -c "umask 0; set_policy $1"; })",
        R"(by_user a/b/c; stat -c '%u %a' a a/b a/b/c | 0 | /c: changed\n65534 700\n65534 700\n65534 600\n
as_user install -m 644 $DEVICE/policy.json theirs.json; set_policy theirs.json; stat -c '%u %a' theirs.json | 0 | changed\n0 644\n
mkdir closed; set_policy closed/managed.json | 0 | closed, so their apps do not find the policy file; run: chmod 
as_user mkdir -m 775 open; by_user open/own.json | 78 | open can be written by others (mode 0775))");
}

} // namespace
