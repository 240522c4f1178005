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
qvctl doctor --offline 2>&1 |grep '^qvctl: ' | 1
for mode in 0300 0500 0600; do chmod $mode theirs/quorvane-mdm; as_user $QVCTL doctor --offline |grep -o "mode $mode"; done |xargs | 0 | mode 0300 mode 0500 mode 0600\n
XDG_DATA_HOME=$DEVICE/roots; grant; as_user $QVCTL doctor --offline | 1 | belongs to user 0, so the app)");
}

/// Adds users with homes in $DEVICE/home: "bob" and "alice" have a state, "carol" has none, the state folders
/// of the others are attacks.
constexpr const char* usersWithHomes = R"sh(
    umask 022; unset XDG_DATA_HOME XDG_RUNTIME_DIR
    echo 'root:x:0:0::/root:/bin/sh' > /etc/passwd
    echo 'helpers:x:65100:alice' > /etc/group
    number=65000
    for name in alice carol linker piper borrower bob; do
        echo "$name:x:$number:$number::$DEVICE/home/$name:/bin/sh" >> /etc/passwd
        number=$((number + 1))
    done
    as() { # NAME COMMAND...
        name=$1; shift
        HOME=$DEVICE/home/$name setpriv --reuid $(id -u $name) --regid $(id -g $name) --clear-groups -- "$@"
    }
    files() { find $DEVICE/home $DEVICE/roots -printf '%p %u %m %s %T@ %C@\n' | sort; }
    make_homes() {
        for name in alice carol linker piper borrower bob; do
            mkdir -p $DEVICE/home/$name/.local/share
            chown -R $name $DEVICE/home/$name
        done
        as alice $QVCTL privacy grant notifications
        as bob $QVCTL privacy revoke notifications
        mkdir -m 755 $DEVICE/roots
        (umask 077; cp $DEVICE/home/alice/.local/share/quorvane-mdm/shell.sqlite $DEVICE/roots)
        as linker ln -s $DEVICE/roots $DEVICE/home/linker/.local/share/quorvane-mdm
        chmod 700 $DEVICE/home/alice # As useradd does.
        state=$DEVICE/home/piper/.local/share/quorvane-mdm
        as piper mkdir -m 700 $state
        as piper mkfifo $state/shell.sqlite $state/com.quorvane.mdm.sqlite
        as borrower ln -s $DEVICE/home/alice/.local/share/quorvane-mdm $DEVICE/home/borrower/.local/share/quorvane-mdm
        echo '{}' > $DEVICE/x.json; chown root:helpers $DEVICE/x.json; chmod 640 $DEVICE/x.json
        files > $DEVICE/files
    }
    [ -d $DEVICE/home ] || make_homes
    export HOME=$DEVICE/roots/home
    cd $DEVICE
)sh";

// Leak detection needs a thread, so it is off where bob can start none.
TEST_F(RootTest, RootReadsTheStateOfOtherUsersWithTheirRights)
{
    checkAll(
        usersWithHomes,
        R"(qvctl status | 0 | qvctl: root has no state of its own. To see that of other users, add --user NAME or --all-users; users with a state: alice, linker, piper, borrower, bob\n
for home in $DEVICE/none ''; do XDG_DATA_HOME=$home qvctl status 2>&1 |grep -c 'has no state'; done |xargs | 0 | 0 1\n
qvctl status --all-users |grep '^[a-z]* (user' |xargs | 0 | alice (user 65000) linker (user 65002) piper (user 65003) borrower (user 65004) bob (user 65005)\n
qvctl status --all-users |grep Notifications |xargs | 0 | Notifications allowed Notifications not asked yet Notifications not asked yet Notifications denied\n
qvctl status --all-users | 69 | /shell.sqlite: unable to open database file
qvctl status --all-users | 69 | /com.quorvane.mdm.sqlite is not a regular file; remove it\n
qvctl status --all-users | 69 | \nqvctl: borrower: cannot access 
qvctl notifications --all-users --json 2> /dev/null |grep -c '^{"version":1,"user":"' | 0 | 5\n
qvctl status --user alice | 0 | Notifications   allowed
qvctl status --user carol | 0 | Notifications   not asked yet
qvctl status --user alcie | 64 | qvctl: there is no user 'alcie'. Did you mean 'alice'?
qvctl doctor --user alice --offline --json | 1 | "user":"alice"
mount -t tmpfs tmpfs /run; mkdir -p /run/user/65000; qvctl doctor --user alice --offline | 1 | no folder /run/user/65000
qvctl status --user alice --managed-configuration none.json 2>&1 |grep -F "$PWD/none.json does not exist" | 0
QUORVANE_MANAGED_CONFIGURATION=x.json setpriv --groups 65100 $QVCTL status --user alice | 0 | /x.json (good)
QUORVANE_MANAGED_CONFIGURATION=x.json setpriv --groups 65100 $QVCTL status --user bob | 0 | /x.json: cannot be opened: Permission denied
as bob $QVCTL status --user bob | 0 | Notifications   denied
(ulimit -u 1; ASAN_OPTIONS=detect_leaks=0 as bob $QVCTL status --user bob) | 69 | qvctl: bob: the process for this user could not be started: Resource temporarily unavailable
as bob $QVCTL status --user alice | 69 | qvctl: only root can read the state of alice; run this command with sudo
as bob $QVCTL status --all-users | 69 | qvctl: only root can read the state of all users; run this command with sudo
qvctl --complete status --user '' |xargs | 0 | alice linker piper borrower bob\n
files |diff $DEVICE/files - | 0
sed -i /home/d /etc/passwd; qvctl snapshot --all-users | 66 | qvctl: no user has a state folder: the app has not run on this device yet
sed -i /home/d /etc/passwd; HOME= setpriv --reuid 65000 --clear-groups $PROGRAMS/App/quorvane-mdm | 78 | quorvane-mdm: this user has no home folder; set HOME or XDG_DATA_HOME to an absolute path)");
}

} // namespace
