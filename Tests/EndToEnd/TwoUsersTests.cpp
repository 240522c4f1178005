// What root does, and does not do, with the data of another user.

#include "Tests/EndToEnd/ProgramTest.h"

#include <gmock/gmock.h>

namespace {

/// A folder of the other user, and how to run the console there.
constexpr const char* twoDataFolders = R"(
    [ $(id -u) = 0 ] && setpriv --reuid 65534 --clear-groups true || exit 77
    as_user() { setpriv --reuid 65534 --clear-groups -- "$@"; }
    chmod 755 $DEVICE
    mkdir $DEVICE/theirs $DEVICE/roots
    chown 65534 $DEVICE/theirs
    in_data() { # FOLDER VERB...
        folder=$1; shift
        XDG_DATA_HOME=$folder $QVCTL "$@" 2>&1 | sed "s|$DEVICE||g"
    }
)";
constexpr int withoutRoot = 77;

TEST_F(ProgramTest, RootDecidesForItselfAlone)
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
    if (outcome.exitCode == withoutRoot)
        GTEST_SKIP() << "needs root";
    EXPECT_THAT(outcome.output, testing::MatchesRegex(R"(missing
qvctl: nothing was changed: the state of root would be kept in /theirs/quorvane-mdm, and /theirs belongs to user 65534: .*
empty
qvctl: nothing was changed: /theirs/quorvane-mdm belongs to the user nobody; run this as that user
forget
qvctl: nothing was changed: /theirs/quorvane-mdm belongs to the user nobody; run this as that user
links
qvctl: nothing was changed: /theirs/quorvane-mdm belongs to the user nobody; run this as that user
secret
theirs
Notifications of nobody: denied
qvctl: nothing was changed: /theirs/quorvane-mdm belongs to the user nobody; run this as that user
Notifications   denied
another way
qvctl: nothing was changed: the state of root would be kept in /theirs/roots/quorvane-mdm, and /theirs belongs to user 65534: .*
/[^ ]*/theirs/roots
own
Notifications of root: allowed
qvctl: nothing was changed: /roots/quorvane-mdm/shell.bell is a link; remove it
secret
)"));
}

} // namespace
