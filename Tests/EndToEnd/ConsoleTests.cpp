#include "Core/ManagedKeys.h"
#include "Tests/EndToEnd/ProgramTest.h"

#include <fmt/format.h>

#include <csignal>
#include <fstream>
#include <map>
#include <set>
#include <tuple>

namespace json = boost::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

/// The section of Docs/JSON.md about one command.
struct DocumentedCommand {
    json::value example;
    std::set<std::string> members;
};

std::map<std::string, DocumentedCommand> documentedCommands()
{
    std::map<std::string, DocumentedCommand> commands;
    DocumentedCommand* command = nullptr;
    std::ifstream document(QV_SOURCES "/Docs/JSON.md");
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with("## qvctl "))
            command = &commands[line.substr(9)];
        else if (command != nullptr && line.starts_with("{"))
            command->example = json::parse(line);
        else if (command != nullptr && line.starts_with("| `"))
            command->members.insert(line.substr(3, line.find('`', 3) - 3));
    }
    return commands;
}

/// Adds the paths of the members of `value` in the notation of the document, down to the documented level.
void collectMembers(const json::value& value, const std::string& path,
                    const std::set<std::string>& documented, std::set<std::string>& found)
{
    if (documented.contains(path) || !value.is_structured()) {
        found.insert(path);
    } else if (const auto* object = value.if_object()) {
        for (const auto& [key, member] : *object) {
            const std::string name = Core::findManagedKey(key) != nullptr ? "*" : std::string(key);
            collectMembers(member, path.empty() ? name : fmt::format("{}.{}", path, name), documented, found);
        }
    } else {
        for (const auto& element : value.get_array())
            collectMembers(element, path + "[]", documented, found);
    }
}

std::set<std::string> membersOf(const json::value& value, const std::set<std::string>& documented)
{
    std::set<std::string> found;
    collectMembers(value, "", documented, found);
    EXPECT_EQ(value.at("version"), 1);
    found.erase("version");
    return found;
}

TEST_F(ProgramTest, JSONMembersAreDocumented)
{
    device.replacePolicy(R"({"OrganizationId": "1", "base_domain": "backend.example", "api_key": "canary",
        "device_id": "DEV-1", "AllowedAppsBundleIdsForSSOExtension": "a.b", "SchemaVersion": "1"})");
    device.write(device.path("payload.json"), R"({"aps": {"alert": "Hello"}})");
    device.setEnvironment("QUORVANE_LOG_DEBUG", "0"); // Only 1 counts.
    const auto application = startRegistered();
    device.write(device.path("large.json"), R"({"aps": {}})" + std::string(4096, ' '));
    EXPECT_THAT(qvctl({"push", device.path("large.json")}).output, HasSubstr("larger than 4096 bytes"));
    std::filesystem::copy_file(device.policyFile(), device.path("again.json"));
    const std::tuple<const char*, const char*, int> commands[] = {
        {"push", "$DEVICE/payload.json", 0},
        {"notifications", "", 0},
        {"status", "--reveal --check running", 0},
        {"wait", "", 0},
        {"snapshot", "", 0},
        {"config show", "", 0},
        {"config lint", "", 0},
        {"config explain", "", 0},
        {"config schema", "", 0},
        {"bundle", "$DEVICE/bundle.tar.gz", 0},
        {"config set", "$DEVICE/again.json --wait", 0},
        {"watch", "| head -n 1", 0},
        {"doctor", "--offline", 1}, // There is no session bus.
        {"reload", "", 0},
        {"config clear", "", 0},
        {"config forget", "", 0},
        {"privacy", "reset notifications", 0},
    };
    std::map<std::string, json::value> printed;
    for (const auto& [command, arguments, exitCode] : commands) {
        const Outcome outcome =
            shell(fmt::format("exec 2> /dev/null; $QVCTL --json {} {}", command, arguments));
        EXPECT_EQ(outcome.exitCode, exitCode) << command << outcome.output;
        printed[command] = json::parse(outcome.output);
    }

    for (const auto& [command, documented] : documentedCommands()) {
        std::set<std::string> example = membersOf(documented.example, documented.members);
        if (command == "status")
            example.merge(std::set<std::string>{"deviceToken", "conditions[].name", "conditions[].isMet",
                                                "conditions[].reason"}); // The example is without options.
        EXPECT_EQ(example, documented.members) << "the example of " << command;
        if (command == "log")
            continue; // Checked by LogReadsTheJournal, which has a journal.
        ASSERT_TRUE(printed.contains(command)) << command;
        EXPECT_EQ(membersOf(printed[command], documented.members), documented.members) << command;
        printed.erase(command);
    }
    EXPECT_THAT(printed, IsEmpty()) << "not documented";
    EXPECT_EQ(application->end(), 0);
    EXPECT_THAT(application->lines(), testing::Each(Not(HasSubstr(" debug "))));
}

TEST_F(ProgramTest, ExitCodeDoesNotDependOnTheReaderOfTheOutput)
{
    // More output than fits in a pipe. A full disk is an error, except on standard error.
    checkAll(R"(
        echo "{\"AllowedAppsBundleIdsForSSOExtension\": [$(yes '"nodot",' | head -n 2000) \"\"]}" > $DEVICE/bad.json
        set -o pipefail)",
             R"(qvctl config lint $DEVICE/bad.json 2>&1 |true | 78
qvctl config lint $DEVICE/bad.json none.json 2>&1 | 78 | [2000] is empty; it is ignored; remove the extra comma or element\nqvctl: none.json: no such file\n
qvctl doctor --offline |head -n 1 | 1
qvctl config schema > /dev/full | 69 | No space left
qvctl doctor --offline > /dev/full | 69 | No space left
qvctl --help > /dev/full | 69 | No space left
qvctl config show 2> /dev/full | 66)");
}

TEST_F(ProgramTest, OutputIsColoredOnlyOnColorTerminals)
{
    checkAll(R"(
        export QUORVANE_MANAGED_CONFIGURATION=$DEVICE/$'\a.json'
        echo '{' > $QUORVANE_MANAGED_CONFIGURATION
        status() { env $1 script -qec "$QVCTL status $2" /dev/null; }
        is_colored() { status "$@" | grep -q $'\e'; }
        )",
             R"(is_colored 'TERM=xterm NO_COLOR=' | 0
is_colored 'TERM=xterm NO_COLOR=1' | 1
is_colored 'TERM=xterm NO_COLOR=' --no-color | 1
is_colored 'TERM=dumb NO_COLOR=' | 1
is_colored 'TERM= NO_COLOR=' | 1
is_colored '-uTERM NO_COLOR=' | 1
status 'TERM=xterm NO_COLOR=' | 0 | \x07.json:2:1: )");
}

TEST_F(ProgramTest, BundleIsANewPrivateFile)
{
    device.write(device.path("my.json"), R"({"device_id": "NotificationAuthorization"})");
    checkAll("set -o pipefail; umask 0; mkdir -p $DEVICE/bundles; cd $DEVICE/bundles; "
             "ln -sf none.tar.gz link.tar.gz",
             R"(qvctl bundle && stat -c %a qvctl-bundle-*.tar.gz | 0 | \n600\n
qvctl bundle a.tar.gz | 0 |   stores.json 
qvctl bundle a.tar.gz | 69 | a.tar.gz exists and is not replaced
qvctl bundle link.tar.gz | 69 | link.tar.gz exists and is not replaced
qvctl bundle missing/a.tar.gz | 69 | No such file
qvctl bundle - |tar -tvz | 0 | -rw------- 0/0
{ head -c 65536 /dev/zero; dd status=none count=0 oflag=nonblock; qvctl bundle -; } |{ sleep 0.3; head -c 65536 >/dev/null; tar -tz |xargs; } | 0 | versions.json status.json doctor.json lint.json explain.json configuration.json stores.json files.txt log.txt\n
ulimit -f 1; qvctl bundle half.tar.gz | 69 | File too large
cd ..; qvctl bundle - --managed-configuration my.json |tar -xz; grep -l my.json *.json | 0 | configuration.json\ndoctor.json\nexplain.json\nlint.json\nstatus.json\n
qvctl privacy grant notifications; qvctl bundle - --managed-configuration ../my.json |tar -xzO stores.json | 0 | "key":"[25 bytes, hash 
echo damaged > $DEVICE/data/quorvane-mdm/shell.sqlite; ln -s none $DEVICE/data/quorvane-mdm/link; touch -hd @86400 $DEVICE/data/quorvane-mdm/link; HOME=$DEVICE qvctl bundle - |tar -xzO files.txt stores.json |grep -Eo '^120777|1970-.*Z|[^ "]*/shell.sqlite' |LC_ALL=C sort -u |xargs echo all: | 0 | all: 120777 1970-01-02T00:00:00.000Z ~/data/quorvane-mdm/shell.sqlite\n
qvctl bundle - --json | 64 | name a file
qvctl bundle - > /dev/full | 69 | No space left)");
    // The half of an archive was removed.
    EXPECT_EQ(shell("ls $DEVICE/bundles | sed s/-2.*//").output, "a.tar.gz\nlink.tar.gz\nqvctl-bundle\n");
}

TEST_F(ProgramTest, WatchShowsEachVersionUntilInterrupted)
{
    const auto plain = device.startShell("ulimit -t 2; exec $QVCTL watch");
    const auto structured = device.startConsole({"watch", "--json"});
    ASSERT_TRUE(plain->waitForLine("waiting for the first configuration"));
    ASSERT_TRUE(structured->waitForLine("waiting for the first configuration"));
    device.replacePolicy(R"({"api_key": "canary", "base_domain": "a.corp"})");
    const auto application = device.startApplication();
    EXPECT_TRUE(plain->waitForLine("version 1: base domain, api key, 0 allowed apps"));
    device.replacePolicy(R"({"api_key": "other canary", "AllowedAppsBundleIdsForSSOExtension": "a.b"})");
    EXPECT_TRUE(plain->waitForLine("version 2: api key, 1 allowed app"));
    EXPECT_TRUE(plain->waitForLine("    base domain: absent"));
    EXPECT_TRUE(plain->waitForLine("    api key: ********"));
    EXPECT_TRUE(plain->waitForLine("    allowed apps: a.b"));
    EXPECT_TRUE(structured->waitForLine(R"("changed":["baseDomain","apiKey","allowedAppBundleIds"])"));
    device.replacePolicy(R"({"api_key": "other canary"})");
    EXPECT_TRUE(plain->waitForLine("    allowed apps: none"));
    EXPECT_EQ(application->end(), 0);
    EXPECT_EQ(qvctl({"config", "forget"}).exitCode, 0);
    EXPECT_TRUE(plain->waitForLine("snapshot deleted"));
    EXPECT_TRUE(structured->waitForLine(R"("configVersion":0,"lastUpdated":null,)"));
    std::filesystem::remove_all(device.suiteFile().parent_path());
    const auto again = device.startApplication();
    EXPECT_TRUE(plain->waitForLine("version 1: api key, 0 allowed apps"));
    EXPECT_TRUE(structured->waitForLine(R"("changed":["apiKey"])")) << "since it was deleted";
    EXPECT_THAT(structured->lines(), Not(Contains(HasSubstr("canary"))));
    plain->signal(SIGINT);
    structured->signal(SIGTERM);
    EXPECT_EQ(plain->waitForExit(), 0);
    EXPECT_EQ(structured->waitForExit(), 0);
}

/// Mounts a private /run with an empty journal and defines a function that adds a line to it.
constexpr const char* journalSetUp = R"(
remote=/lib/systemd/systemd-journal-remote
[ -x $remote ] && [ -s /etc/machine-id ] && mount -t tmpfs tmpfs /run 2>/dev/null || exit 77
folder=/run/log/journal/$(cat /etc/machine-id)
mkdir -p $folder
append() { # TIME IDENTIFIER LEVEL MESSAGE [UID EXE PRIVACY]
    printf '__REALTIME_TIMESTAMP=%s\n__MONOTONIC_TIMESTAMP=%s\n_BOOT_ID=%032d\nSYSLOG_IDENTIFIER=%s\nQV_LEVEL=%s\nQV_SUBSYSTEM=com.quorvane.mdm\nQV_CATEGORY=general\nQV_PRIVACY=%s\nMESSAGE=%s\n_UID=%s\n_EXE=%s\n\n' \
        "${1}000000" "$1" 1 "$2" "$3" "${7:-public}" "$4" "${5:-0}" "${6:-/usr/bin/quorvane-mdm (deleted)}" | $remote -o $folder/system.journal - 2>/dev/null
}
)";

TEST_F(ProgramTest, LogReadsTheJournal)
{
    device.replacePolicy(R"({"device_id": "three"})");
    // Not in a changed root, where the kernel allows no user namespace.
    const auto isolated = device.startProgram(
        {"bash", "-c", "unshare -rm true 2>/dev/null || exit 77; exec unshare -rm bash -ec \"$0\"",
         std::string("QVCTL=" QV_PROGRAMS "/Tools/qvctl/qvctl") + journalSetUp + R"(
        $QVCTL log 2>&1 || echo $?
        append 1700000000 quorvane-mdm debug one
        append 1700000001 other-program error other
        append 1700000002 quorvane-mdm error two
        append 1700000002 quorvane-mdm error forged 65534
        append 1700000002 quorvane-mdm error forged 0 /usr/bin/logger
        for selection in '' '--limit 1' '--limit 0' '--level info' '--since 2023-11-14T22:13:22Z' \
                         '--since 2023-11-14T22:13:21Z --limit 9' '--since 1d'; do
            echo "log $selection"
            $QVCTL log $selection 2>/dev/null
        done
        $QVCTL log --limit 1 --json
        $QVCTL log --all --limit 2
        $QVCTL log --follow --limit 1 | {
            read -r first
            mv $folder/system{,@1}.journal; append 1700000003 quorvane-mdm info three # After a rotation.
            read -r second
            echo "$first, then $second"
        }
        append 1700000004 quorvane-mdm info secret 0 /usr/bin/quorvane-mdm unknown
        $QVCTL bundle - 2> /dev/null | tar -xzO log.txt
        mkdir -p /run/systemd/journal; : > /run/systemd/journal/socket
        coproc { exec ${QVCTL%/Tools*}/App/quorvane-mdm --log-stderr --background --push off 2>&1; }
        read -t 9 -r line <&${COPROC[0]} && echo "$line"; kill $COPROC_PID
    )"});
    const auto exitCode = isolated->waitForExit();
    constexpr int unsupported = 77;
    if (exitCode == unsupported)
        GTEST_SKIP() << "needs systemd-journal-remote, unshare and permission to mount";
    const auto& lines = isolated->lines();
    EXPECT_EQ(exitCode, 0);
    const std::string one = "2023-11-14T22:13:20.000Z debug com.quorvane.mdm general one";
    const std::string two = "2023-11-14T22:13:22.000Z error com.quorvane.mdm general two";
    const std::string forged = "2023-11-14T22:13:22.000Z error com.quorvane.mdm general forged";
    const std::string three = "2023-11-14T22:13:23.000Z info com.quorvane.mdm general three";
    ASSERT_THAT(lines,
                ElementsAre(HasSubstr("There is no journal"), "69", "log ", one, two, "log --limit 1", two,
                            "log --limit 0", "log --level info", two, "log --since 2023-11-14T22:13:22Z", two,
                            "log --since 2023-11-14T22:13:21Z --limit 9", two, "log --since 1d",
                            HasSubstr("{"), "[user 65534, /usr/bin/quorvane-mdm (deleted)] " + forged,
                            "[user 0, /usr/bin/logger] " + forged, two + ", then " + three, one, two,
                            HasSubstr("general [5 bytes, hash "),
                            "2023-11-14T22:13:24.000Z info com.quorvane.mdm general <private>",
                            HasSubstr(" com.quorvane.mdm ")));
    const auto documented = documentedCommands().at("log").members;
    EXPECT_EQ(membersOf(json::parse(lines[15]), documented), documented);
}

} // namespace
