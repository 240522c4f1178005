// How the programs treat the state of another user, especially as root.

#include "Tests/EndToEnd/ProgramTest.h"

#include <gmock/gmock.h>

namespace {

TEST_F(RootTest, RootChangesOnlyItsOwnState)
{
    const std::string output = rootShell(R"sh(
        mkdir $DEVICE/theirs $DEVICE/roots
        chown 65534 $DEVICE/theirs
        state=$DEVICE/theirs/quorvane-mdm
        in_data() { # FOLDER COMMAND...
            folder=$1; shift
            XDG_DATA_HOME=$folder $QVCTL "$@" 2>&1 | sed "s|$DEVICE||g"
        }
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
    EXPECT_THAT(output, testing::MatchesRegex(R"(missing
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

/// Adds users with homes in $DEVICE/home: "bob" and "alice" have a state, "carol" has none, the state folders
/// of the others are attacks.
constexpr const char* usersWithHomes = R"sh(
    umask 022
    unset XDG_DATA_HOME XDG_RUNTIME_DIR
    echo 'root:x:0:0::/root:/bin/sh' > /etc/passwd
    echo 'helpers:x:65100:alice' > /etc/group
    number=65000
    add_user() { # NAME
        mkdir -p $DEVICE/home/$1/.local/share
        chown -R $number $DEVICE/home/$1
        echo "$1:x:$number:$number::$DEVICE/home/$1:/bin/sh" >> /etc/passwd
        number=$((number + 1))
    }
    as() { # NAME COMMAND...
        name=$1; shift
        HOME=$DEVICE/home/$name setpriv --reuid $(id -u $name) --regid $(id -g $name) --clear-groups -- "$@"
    }
    for name in alice carol linker piper borrower bob; do add_user $name; done
    as alice $QVCTL privacy grant notifications > /dev/null
    as bob $QVCTL privacy revoke notifications > /dev/null
    mkdir -m 755 $DEVICE/roots
    (umask 077; cp $DEVICE/home/alice/.local/share/quorvane-mdm/shell.sqlite $DEVICE/roots)
    as linker ln -s $DEVICE/roots $DEVICE/home/linker/.local/share/quorvane-mdm
    chmod 700 $DEVICE/home/alice # As useradd does.
    state=$DEVICE/home/piper/.local/share/quorvane-mdm
    as piper mkdir -m 700 $state
    as piper mkfifo $state/shell.sqlite $state/com.quorvane.mdm.sqlite
    as borrower ln -s $DEVICE/home/alice/.local/share/quorvane-mdm $DEVICE/home/borrower/.local/share/quorvane-mdm
    files() { find $DEVICE/home $DEVICE/roots -printf '%p %u %m %s %T@ %C@\n' | sort; }
    files > /etc/before
)sh";

TEST_F(RootTest, RootReadsTheStateOfOtherUsersWithTheirRights)
{
    const std::string output = rootShell(std::string(usersWithHomes) + R"sh(
        row() { grep -o "^[a-z]* (.*\|^Notifications.*\|^qvctl: .*" | sed "s|$DEVICE||g"; }
        export HOME=$DEVICE/roots/home
        echo no option; $QVCTL status 2>&1 | row
        echo all; $QVCTL status --all-users 2>&1 | row; echo ${PIPESTATUS[0]}
        echo JSON; $QVCTL notifications --all-users --json 2> /dev/null | cut -c -46
        for name in alice carol alcie 'bob --all-users'; do
            echo $name; $QVCTL status --user $name 2>&1 | row; echo ${PIPESTATUS[0]}
        done
        echo doctor
        $QVCTL doctor --user alice 2>&1 | row; echo ${PIPESTATUS[0]}
        $QVCTL doctor --user alice --offline --json | grep -o '"user":"alice"\|no folder /run/user/65000'
        echo policy
        policy() { grep -o '[^ ]*/x.json[: ].*' | sed "s|$DEVICE|DEVICE|"; }
        (cd $DEVICE; $QVCTL status --user alice --managed-configuration x.json | policy)
        echo '{}' > $DEVICE/x.json; chown root:helpers $DEVICE/x.json; chmod 640 $DEVICE/x.json
        for name in alice bob; do
            (cd $DEVICE; QUORVANE_MANAGED_CONFIGURATION=x.json setpriv --groups 65100 $QVCTL status --user $name | policy)
        done
        echo not root
        as bob $QVCTL status --user bob | row
        as bob $QVCTL status --user alice 2>&1 | row; echo ${PIPESTATUS[0]}
        as bob $QVCTL status --all-users 2>&1 | row; echo ${PIPESTATUS[0]}
        echo completion; $QVCTL --complete status --user ''
        files | diff /etc/before -
        echo many
        for name in f1 f2 f3 f4 f5 f6; do
            [ $name != f6 ] || $QVCTL status 2>&1 | grep -o 'f4, f5.*'
            add_user $name
            mkdir $DEVICE/home/$name/.local/share/quorvane-mdm
        done
        $QVCTL status 2>&1 | grep -o 'f4, f5.*'
        sed -i /home/d /etc/passwd; $QVCTL snapshot --all-users 2>&1; echo $?
    )sh");
    EXPECT_EQ(output, R"(no option
Notifications   not asked yet
qvctl: root has no state of its own. To see that of other users, add --user NAME or --all-users; users with a state: alice, linker, piper, borrower, bob
all
alice (user 65000)
Notifications   allowed
linker (user 65002)
Notifications   not asked yet
qvctl: linker: Cannot read /home/linker/.local/share/quorvane-mdm/shell.sqlite: unable to open database file
piper (user 65003)
Notifications   not asked yet
qvctl: piper: Cannot read /home/piper/.local/share/quorvane-mdm/shell.sqlite: /home/piper/.local/share/quorvane-mdm/shell.sqlite is not a regular file; remove it
qvctl: piper: Cannot read /home/piper/.local/share/quorvane-mdm/com.quorvane.mdm.sqlite: /home/piper/.local/share/quorvane-mdm/com.quorvane.mdm.sqlite is not a regular file; remove it
borrower (user 65004)
qvctl: borrower: cannot access /home/borrower/.local/share/quorvane-mdm: Permission denied
bob (user 65005)
Notifications   denied
69
JSON
{"version":1,"user":"alice","notifications":[]
{"version":1,"user":"linker","notifications":[
{"version":1,"user":"piper","notifications":[]
{"version":1,"user":"borrower","error":"cannot
{"version":1,"user":"bob","notifications":[]}
alice
Notifications   allowed
0
carol
Notifications   not asked yet
0
alcie
qvctl: there is no user 'alcie'. Did you mean 'alice'?
64
bob --all-users
qvctl: --all-users excludes --user
64
doctor
qvctl: --user requires --offline
64
"user":"alice"
no folder /run/user/65000
policy
DEVICE/x.json does not exist
DEVICE/x.json (good)
DEVICE/x.json: cannot be opened: Permission denied
not root
Notifications   denied
qvctl: only root can read the state of alice; run this command with sudo
69
qvctl: only root can read the state of all users; run this command with sudo
69
completion
alice
linker
piper
borrower
bob
many
f4, f5
f4, f5 and 1 more
qvctl: no user has a state folder: the app has not run on this device yet
66
)");
}

} // namespace
