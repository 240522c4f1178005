// How the programs treat the state of another user, especially as root.

#include "Tests/EndToEnd/ProgramTest.h"

namespace {

TEST_F(RootTest, RootChangesOnlyItsOwnState)
{
    checkAll(R"sh(
        cd $DEVICE
        rm -rf theirs roots
        mkdir theirs theirs/roots roots
        echo secret > roots/file
        chown 65534 theirs
        export XDG_DATA_HOME=$DEVICE/theirs
        as_user $QVCTL privacy revoke notifications > /dev/null
        grant() { qvctl privacy grant notifications; })sh",
             R"(grant | 69 | theirs/quorvane-mdm belongs to user nobody; run this command as that user
grant; as_user $QVCTL status | 0 | Notifications   denied
as_user ln -sf $DEVICE/roots/file theirs/quorvane-mdm/shell.bell; grant; cat roots/file | 0 | that user\nsecret\n
grant; find theirs -user 0 | 0 | that user\ntheirs/roots\n
rm -r theirs/quorvane-mdm; grant | 69 | theirs belongs to user 65534: 
XDG_DATA_HOME=$DEVICE/theirs/roots; grant | 69 | theirs belongs to user 65534: 
XDG_DATA_HOME=$DEVICE/roots; grant | 0 | Notifications for root: allowed
qvctl doctor --offline |grep state.folder | 0 | ok       state.folder
XDG_DATA_HOME=$DEVICE/roots; grant; as_user $QVCTL doctor --offline | 1 | belongs to user 0, so the app)");
}

/// Adds users with homes in $DEVICE/home: "bob" and "alice" have a state, "carol" has none, the state folders
/// of the others are attacks.
constexpr const char* usersWithHomes = R"sh(
    umask 022; unset XDG_DATA_HOME XDG_RUNTIME_DIR
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
        row() { grep -o "^[a-z]* (.*\|^Notifications.*\|^q[a-z-]*: .*" | sed "s|$DEVICE||g"; }
        try() { # NAME COMMAND...
            name=$1; shift
            echo $name: $("$@" 2>&1 | row; echo ${PIPESTATUS[0]})
        }
        export HOME=$DEVICE/roots/home
        try 'no option' $QVCTL status
        XDG_DATA_HOME=$DEVICE/none $QVCTL status 2>&1 | grep 'has no state'
        $QVCTL status --all-users 2>&1 | row; echo all: ${PIPESTATUS[0]}
        $QVCTL notifications --all-users --json 2> /dev/null | grep -c '^{"version":1,"user":"'
        for name in alice carol alcie; do try $name $QVCTL status --user $name; done
        try doctor $QVCTL doctor --user alice
        mount -t tmpfs tmpfs /run; mkdir -p /run/user/65000 # It belongs to root.
        $QVCTL doctor --user alice --offline --json | grep -o '"user":"alice"\|no folder /run/user/65000'
        policy() { grep -o '[^ ]*/x.json[: ].*' | sed "s|$DEVICE|DEVICE|"; }
        (cd $DEVICE; $QVCTL status --user alice --managed-configuration x.json | policy)
        echo '{}' > $DEVICE/x.json; chown root:helpers $DEVICE/x.json; chmod 640 $DEVICE/x.json
        for name in alice bob; do
            (cd $DEVICE; QUORVANE_MANAGED_CONFIGURATION=x.json setpriv --groups 65100 $QVCTL status --user $name | policy)
        done
        try bob as bob $QVCTL status --user bob
        try 'not root' as bob $QVCTL status --user alice
        try 'not root' as bob $QVCTL status --all-users
        echo completion: $($QVCTL --complete status --user '')
        files | diff /etc/before -
        sed -i /home/d /etc/passwd; try 'no users' $QVCTL snapshot --all-users
        HOME= try 'no home' setpriv --reuid 65000 --clear-groups $PROGRAMS/App/quorvane-mdm
    )sh");
    EXPECT_EQ(
        output,
        R"(no option: Notifications not asked yet qvctl: root has no state of its own. To see that of other users, add --user NAME or --all-users; users with a state: alice, linker, piper, borrower, bob 0
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
all: 69
5
alice: Notifications allowed 0
carol: Notifications not asked yet 0
alcie: qvctl: there is no user 'alcie'. Did you mean 'alice'? 64
doctor: qvctl: --user requires --offline 64
"user":"alice"
no folder /run/user/65000
DEVICE/x.json does not exist
DEVICE/x.json (good)
DEVICE/x.json: cannot be opened: Permission denied
bob: Notifications denied 0
not root: qvctl: only root can read the state of alice; run this command with sudo 69
not root: qvctl: only root can read the state of all users; run this command with sudo 69
completion: alice linker piper borrower bob
no users: qvctl: no user has a state folder: the app has not run on this device yet 66
no home: quorvane-mdm: this user has no home folder; set HOME or XDG_DATA_HOME to an absolute path 78
)");
}

} // namespace
