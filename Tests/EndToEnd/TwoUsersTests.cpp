// How the programs treat the state of another user, especially as root.

#include "Tests/EndToEnd/ProgramTest.h"

#include <gmock/gmock.h>

#include <csignal>

namespace {

/// Creates a data folder for root and one for user 65534, and defines functions that run qvctl with them.
constexpr const char* twoDataFolders = R"(
    [ $(id -u) = 0 ] && setpriv --reuid 65534 --clear-groups true || exit 77
    as_user() { setpriv --reuid 65534 --clear-groups -- "$@"; }
    chmod 755 $DEVICE
    mkdir $DEVICE/theirs $DEVICE/roots
    chown 65534 $DEVICE/theirs
    in_data() { # FOLDER COMMAND...
        folder=$1; shift
        XDG_DATA_HOME=$folder $QVCTL "$@" 2>&1 | sed "s|$DEVICE||g"
    }
)";
constexpr int notRoot = 77;

TEST_F(ProgramTest, RootChangesOnlyItsOwnState)
{
    const Outcome outcome = shell(std::string(twoDataFolders) + R"sh(
        state=$DEVICE/theirs/quorvane-mdm
        echo missing; in_data $DEVICE/theirs privacy grant notifications; ls $DEVICE/theirs
        as_user mkdir -m 700 $state
        echo empty; in_data $DEVICE/theirs privacy grant notifications; ls $state
        echo forget; in_data $DEVICE/theirs config forget; ls $state
        echo secret > $DEVICE/roots/file
        as_user ln -s $DEVICE/roots/file $state/shell.bell
        as_user ln -s $DEVICE/roots/file $state/shell.sqlite
        echo links; in_data $DEVICE/theirs privacy grant notifications; cat $DEVICE/roots/file
        rm $state/shell.*
        echo theirs; XDG_DATA_HOME=$DEVICE/theirs as_user $QVCTL privacy revoke notifications
        in_data $DEVICE/theirs privacy grant notifications
        XDG_DATA_HOME=$DEVICE/theirs as_user $QVCTL status | grep Notifications
        find $DEVICE/theirs -user 0
        echo 'another way'; mkdir $DEVICE/theirs/roots; in_data $DEVICE/theirs/roots privacy grant notifications
        find $DEVICE/theirs/roots
        echo own; in_data $DEVICE/roots privacy grant notifications
        rm $DEVICE/roots/quorvane-mdm/shell.*; ln -s $DEVICE/roots/file $DEVICE/roots/quorvane-mdm/shell.bell
        in_data $DEVICE/roots privacy grant notifications; cat $DEVICE/roots/file
    )sh");
    if (outcome.exitCode == notRoot)
        GTEST_SKIP() << "needs root";
    EXPECT_THAT(outcome.output, testing::MatchesRegex(R"(missing
qvctl: nothing was changed: root's state would be stored in /theirs/quorvane-mdm, but /theirs belongs to user 65534: .*
empty
qvctl: nothing was changed: /theirs/quorvane-mdm belongs to user nobody; run this command as that user
forget
qvctl: nothing was changed: /theirs/quorvane-mdm belongs to user nobody; run this command as that user
links
qvctl: nothing was changed: /theirs/quorvane-mdm belongs to user nobody; run this command as that user
secret
theirs
Notifications for nobody: denied
qvctl: nothing was changed: /theirs/quorvane-mdm belongs to user nobody; run this command as that user
Notifications   denied
another way
qvctl: nothing was changed: root's state would be stored in /theirs/roots/quorvane-mdm, but /theirs belongs to user 65534: .*
/[^ ]*/theirs/roots
own
Notifications for root: allowed
qvctl: nothing was changed: /roots/quorvane-mdm/shell.bell is a symbolic link; remove it
secret
)"));
}

TEST_F(ProgramTest, AppStoresNothingInAFolderOfAnotherUser)
{
    const Outcome prepared = shell(std::string(twoDataFolders) + R"sh(
        mkdir -m 1777 $DEVICE/shared
        XDG_DATA_HOME=$DEVICE/shared as_user $QVCTL privacy grant notifications
        state=$DEVICE/shared/quorvane-mdm
        as_user chmod 777 $state
        as_user chmod 666 $state/shell.sqlite
        find $state -type f -exec md5sum {} +
    )sh");
    if (prepared.exitCode == notRoot)
        GTEST_SKIP() << "needs root";
    device.setEnvironment("XDG_DATA_HOME", device.path("shared"));
    device.replacePolicy(R"({"api_key": "canary", "device_id": "DEV-1"})");
    const auto application = device.startApplication({"--log-stderr", "--push", "local"});
    EXPECT_TRUE(application->waitForLine("/shared/quorvane-mdm belongs to user 65534; set XDG_DATA_HOME"));
    ASSERT_TRUE(application->waitForLine("Configuration manager initialized"));
    application->signal(SIGTERM);
    EXPECT_EQ(application->waitForExit(), 0) << "it must run without stores";
    const Outcome after = shell(R"(
        echo "Notifications for nobody: allowed"
        find $DEVICE/shared/quorvane-mdm -type f -exec md5sum {} +
        grep -rl canary $DEVICE/shared
        setpriv --reuid 12345 --clear-groups $QVCTL status 2>&1 | grep -o 'belongs to user 65534, not to user 12345'
    )");
    EXPECT_EQ(after.output, prepared.output + "belongs to user 65534, not to user 12345\n");
}

} // namespace
