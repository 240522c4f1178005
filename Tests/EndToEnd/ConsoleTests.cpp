#include "Core/ManagedKeys.h"
#include "Tests/EndToEnd/ProgramTest.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <system_error>

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
    const auto hasMembersBelow = [&](const std::string& prefix) {
        return std::any_of(documented.begin(), documented.end(),
                           [&](const std::string& member) { return member.starts_with(prefix); });
    };
    if (const auto* object = value.if_object();
        object != nullptr && (path.empty() || hasMembersBelow(path + "."))) {
        const bool isAnyName = hasMembersBelow(path + ".*");
        for (const auto& [key, member] : *object)
            collectMembers(
                member, path.empty() ? std::string(key) : path + "." + (isAnyName ? "*" : std::string(key)),
                documented, found);
    } else if (const auto* array = value.if_array(); array != nullptr && hasMembersBelow(path + "[]")) {
        for (const auto& element : *array)
            collectMembers(element, path + "[]", documented, found);
    } else {
        found.insert(path);
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

std::string textOfFile(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Returns a different value for each key.
std::string valueOf(const Core::ManagedKey& key, std::string_view ending)
{
    using Kind = Core::ManagedKey::Kind;
    const std::string_view value = key.kind == Kind::bundleIds ? "com.example.mail"
                                   : key.kind == Kind::address ? "backend.example"
                                                               : key.name;
    return std::string(value) + std::string(ending);
}

std::string policyWithEveryKey(std::string_view ending)
{
    json::object policy;
    for (const Core::ManagedKey& key : Core::managedKeys())
        policy[key.name] = valueOf(key, ending);
    return json::serialize(policy);
}

TEST_F(ProgramTest, EveryManagedKeyAppearsInEveryCommand)
{
    device.replacePolicy(policyWithEveryKey(""));
    const auto application = device.startApplication();
    ASSERT_TRUE(application->waitForLine("Configuration updated - v1"));
    application->signal(SIGTERM);
    application->waitForExit();

    const auto shown = qvctlJSON({"config", "show"}).at("configuration");
    const auto explained = qvctlJSON({"config", "explain"}).at("keys");
    const auto snapshot = qvctlJSON({"snapshot"});
    const auto revealed = qvctlJSON({"snapshot", "--reveal"});
    std::size_t reportedCount = 0;
    for (const auto& [name, value] : qvctlJSON({"status"}))
        reportedCount +=
            (name.starts_with("has") && value == true) || (name.ends_with("Count") && value == 1);
    const std::string texts = qvctl({"status"}).output + qvctl({"snapshot"}).output;
    const auto watch = device.startConsole({"watch", "--json"});
    ASSERT_TRUE(watch->waitForLine("{"));
    const json::value watched = json::parse(watch->lines().back());
    device.replacePolicy(policyWithEveryKey("x"));
    const std::string doctor = qvctl({"doctor", "--offline"}).output;
    const std::string readme = textOfFile(QV_SOURCES "/README.md");
    std::size_t carriedCount = 0;
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        SCOPED_TRACE(key.name);
        const std::string value = valueOf(key, "");
        const auto isShown = [&](const json::value& printed, bool isMasked) {
            return json::serialize(printed).find(isMasked ? "********" : value) != std::string::npos;
        };
        EXPECT_TRUE(isShown(shown.at(key.name), key.isSecret));
        EXPECT_TRUE(isShown(explained.at(key.name).at("effective"), key.isSecret));
        for (const char* format : {"json-schema", "appconfig", "sample"})
            EXPECT_THAT(qvctl({"config", "schema", "--format", format}).output,
                        HasSubstr("\"" + std::string(key.name) + "\""));
        EXPECT_THAT(readme, HasSubstr("| `" + std::string(key.name) + "` |"));
        if (!key.isStored())
            continue;
        EXPECT_TRUE(isShown(snapshot.at(key.codingKey), key.isSecret));
        EXPECT_TRUE(isShown(revealed.at(key.codingKey), false));
        EXPECT_TRUE(isShown(watched.at(key.codingKey), key.isSecret));
        EXPECT_THAT(texts, HasSubstr(key.noun));
        EXPECT_THAT(doctor, HasSubstr(key.name));
        ++carriedCount;
    }
    EXPECT_EQ(reportedCount, carriedCount) << "by status --json";
}

TEST_F(ProgramTest, JSONMembersAreDocumented)
{
    device.replacePolicy(policyWithEveryKey(""));
    device.write(device.path("payload.json"), R"({"aps": {"alert": "Hello"}})");
    const auto application = device.startApplication({"--log-stderr", "--push", "local"});
    DrivenWindow window = device.window();
    window.tap("welcome.getStarted");
    window.tap("shell.allow");
    ASSERT_TRUE(application->waitForLine("Remote notifications registered"));

    const std::string policy = device.policyFile();
    std::map<std::string, json::value> printed;
    const auto run = [&](const std::string& command, std::vector<std::string> arguments) {
        printed[command] = qvctlJSON(std::move(arguments));
    };
    run("push", {"push", device.path("payload.json")});
    run("notifications", {"notifications"});
    run("status", {"status", "--reveal", "--check", "running"});
    run("wait", {"wait"});
    run("snapshot", {"snapshot"});
    run("config show", {"config", "show"});
    run("config lint", {"config", "lint", policy});
    run("config explain", {"config", "explain"});
    run("config schema", {"config", "schema"});
    run("bundle", {"bundle", device.path("bundle.tar.gz")});
    std::filesystem::copy_file(policy, device.path("again.json"));
    const auto set = device.startConsole({"config", "set", device.path("again.json"), "--wait", "--json"});
    ASSERT_EQ(set->waitForExit(), 0);
    for (const std::string& line : set->lines()) { // Standard error is included.
        if (line.starts_with("{"))
            printed["config set"] = json::parse(line);
    }
    const auto watch = device.startConsole({"watch", "--json"});
    ASSERT_TRUE(watch->waitForLine("{"));
    printed["watch"] = json::parse(watch->lines().back());
    const auto doctor = device.startConsole({"doctor", "--offline", "--json"});
    EXPECT_EQ(doctor->waitForExit(), 1) << "there is no session bus";
    printed["doctor"] = json::parse(doctor->lines().back());
    run("reload", {"reload"});
    run("config clear", {"config", "clear"});
    run("config forget", {"config", "forget"});
    run("privacy", {"privacy", "reset", "notifications"});

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
}

TEST_F(ProgramTest, ExitCodeDoesNotDependOnTheReaderOfTheOutput)
{
    std::string policy = R"({"AllowedAppsBundleIdsForSSOExtension": [)";
    for (int i = 0; i < 2000; ++i)
        policy += "\"nodot\", ";
    device.write(device.path("bad.json"), policy + "1]}");
    struct Case {
        const char* command;
        int exitCode;
    };
    const Case cases[] = {
        {"config lint $DEVICE/bad.json | head -n 1", 78}, // More output than fits in a pipe.
        {"config lint --json $DEVICE/bad.json | head -c 1", 78},
        {"config lint $DEVICE/bad.json 2>&1 | true", 78},
        {"doctor --offline | head -n 1", 1},
        {"doctor --offline --json | true", 1},
        {"config show 2>&1 | true", 66},
        {"stauts 2>&1 | true", 64},
        {"config schema | head -n 1", 0},
        // A full disk is an error, except on standard error.
        {"config schema > /dev/full", 69},
        {"doctor --offline > /dev/full", 69},
        {"config show --json > /dev/full", 69},
        {"--help > /dev/full", 69},
        {"config show 2> /dev/full", 66},
    };
    for (const Case& row : cases) {
        const Outcome outcome = shell(std::string("set -o pipefail; $QVCTL ") + row.command);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << row.command;
        EXPECT_EQ(outcome.output.find("No space left") != std::string::npos, row.exitCode == 69)
            << row.command << outcome.output;
    }
}

TEST_F(ProgramTest, CommandsNameTheIgnoredFileAndBothCandidates)
{
    const auto outcome = shellWithOwnPolicyFolder(R"(
        folder=/etc/quorvane-mdm
        look() { # NAME EXPECTED
            for command in status 'config show' 'config explain' 'doctor --offline'; do
                for format in '' --json; do
                    $QVCTL $command $format 2>&1 | grep -q "$2" || echo "$1: $command $format lacks $2"
                done
            done
        }
        look none "either $folder/managed.plist nor $folder/managed.json exists\|managed.plist\",\"$folder/managed.json"
        echo '{}' > $folder/managed.json
        echo '<plist><dict/></plist>' > $folder/managed.plist
        ignored="$folder/managed.json is ignored because $folder/managed.plist exists"
        look both "$ignored\|\"ignored\":\[\"$folder/managed.json"
        echo '<plist>' > $folder/managed.plist
        $QVCTL status | grep -q "$ignored" || echo malformed
        chmod 666 $folder/managed.plist
        $QVCTL status | grep ignored # An untrusted file hides nothing.
        $QVCTL status | grep -q 'managed.json (good)' || echo untrusted
        $QVCTL config clear > /dev/null; ls $folder
    )");
    if (!outcome)
        GTEST_SKIP() << "needs root and a mount namespace";
    EXPECT_EQ(outcome->output, "");
}

TEST_F(ProgramTest, StatusShowsTheLastOutcomesWithoutValues)
{
    device.replacePolicy(
        R"({"base_domain": "localhost:1/canary", "api_key": "canary", "device_id": "canary"})");
    device.write(device.path("payload.json"), R"({"aps": {"content-available": 1}, "canary": "canary"})");
    const auto application = device.startApplication({"--log-stderr", "--push", "local"});
    DrivenWindow window = device.window();
    window.tap("welcome.getStarted");
    window.tap("shell.allow");
    ASSERT_TRUE(application->waitForLine("Device token upload failed"));
    EXPECT_EQ(qvctl({"push", device.path("payload.json")}).output, "Delivered\n");
    device.replacePolicy("{\"canary\"");
    ASSERT_TRUE(application->waitForLine("the last valid configuration stays in effect"));
    application->signal(SIGTERM);
    EXPECT_EQ(application->waitForExit(), 0);
    const std::string output = qvctl({"status"}).output;
    for (const char* row : {"last upload     failed: ", "last push       silent, accepted, ",
                            "last error      the policy file could not be parsed, "})
        EXPECT_THAT(output, HasSubstr(row));
    EXPECT_THAT(output + qvctl({"doctor", "--offline"}).output + qvctl({"status", "--json"}).output,
                Not(HasSubstr("canary")));
}

TEST_F(ProgramTest, OutputIsColoredOnlyOnColorTerminals)
{
    struct Case {
        const char* environment;
        bool isColored;
    };
    for (const Case& row :
         {Case{"TERM=xterm NO_COLOR=", true}, Case{"TERM=xterm NO_COLOR=1", false},
          Case{"TERM=xterm OPTION=--no-color NO_COLOR=", false}, Case{"TERM=dumb NO_COLOR=", false},
          Case{"TERM= NO_COLOR=", false}, Case{"-uTERM NO_COLOR=", false}}) {
        const Outcome outcome = shell(std::string("env ") + row.environment +
                                      " script -qec \"$QVCTL status \\$OPTION\" /dev/null");
        EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
        EXPECT_EQ(outcome.output.find('\x1b') != std::string::npos, row.isColored) << row.environment;
    }
}

TEST_F(ProgramTest, BundleIsANewPrivateFile)
{
    struct Case {
        const char* command;
        int exitCode;
        const char* part;
    };
    const Case cases[] = {
        {"bundle && stat -c %a qvctl-bundle-*.tar.gz", 0, "600"},
        {"bundle a.tar.gz", 0, "  stores.json "},
        {"bundle a.tar.gz", 69, "a.tar.gz exists and is not replaced"},
        {"bundle link.tar.gz", 69, "link.tar.gz exists and is not replaced"},
        {"bundle missing/a.tar.gz", 69, "No such file"},
        {"bundle a.zip", 64, "must end with .tar.gz"},
        {"bundle - | tar -tvz", 0, "-rw------- 0/0"},
        {"bundle - --managed-configuration named.json | tar -xzO status.json lint.json", 0, "named.json"},
        {"bundle - --json", 64, "name a file"},
        {"bundle - > /dev/full", 69, "No space left"},
    };
    ASSERT_EQ(
        shell(
            "mkdir $DEVICE/bundles; cd $DEVICE/bundles; ln -s none.tar.gz link.tar.gz; echo {} > named.json")
            .exitCode,
        0);
    for (const Case& row : cases) {
        const Outcome outcome =
            shell(std::string("set -o pipefail; umask 0; cd $DEVICE/bundles; $QVCTL ") + row.command);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << row.command;
        EXPECT_THAT(outcome.output, HasSubstr(row.part)) << row.command;
    }
    EXPECT_EQ(shell("ls $DEVICE/bundles | sed s/-2.*//").output,
              "a.tar.gz\nlink.tar.gz\nnamed.json\nqvctl-bundle\n");
}

TEST_F(ProgramTest, WatchShowsEachVersionUntilInterrupted)
{
    const auto plain = device.startConsole({"watch"});
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
    EXPECT_THAT(structured->lines(), Not(Contains(HasSubstr("canary"))));
    plain->signal(SIGINT);
    structured->signal(SIGTERM);
    EXPECT_EQ(plain->waitForExit(), 0);
    EXPECT_EQ(structured->waitForExit(), 0);
}

/// The output of a script; absent if it exits with 77, "unsupported", or if the shell is not installed.
std::optional<std::vector<std::string>> linesOf(std::vector<std::string> shell, const std::string& script,
                                                const ChildProcess::Environment& environment = {
                                                    {"MANUALS", QV_PROGRAMS "/manuals"},
                                                    {"QVCTL", QV_PROGRAMS "/Tools/qvctl/qvctl"}})
{
    shell.push_back(script);
    try {
        ChildProcess process(shell, environment);
        const auto exitCode = process.waitForExit();
        if (exitCode == 77)
            return std::nullopt;
        EXPECT_EQ(exitCode, 0) << script << testing::PrintToString(process.lines());
        return process.lines();
    } catch (const std::system_error&) {
        return std::nullopt;
    }
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
    // Not in a changed root, where the kernel allows no user namespace.
    const char* isolated = "unshare -rm true 2>/dev/null || exit 77; exec unshare -rm bash -ec \"$0\"";
    const auto lines = linesOf({"bash", "-c", isolated}, std::string(journalSetUp) + R"(
        $QVCTL log 2>&1 || echo $?
        append 1700000000 quorvane-mdm debug one
        append 1700000001 other-program error other
        append 1700000002 quorvane-mdm error two
        append 1700000002 quorvane-mdm error forged 65534
        append 1700000002 quorvane-mdm error forged 0 /usr/bin/logger
        for selection in '' '--limit 1' '--limit 0' '--level info' '--since 2023-11-14T22:13:21Z' '--since 1d'; do
            echo "log $selection"
            $QVCTL log $selection 2>/dev/null
        done
        $QVCTL log --limit 1 --json
        $QVCTL log --all --limit 2
        $QVCTL log --follow --limit 1 | {
            read -r first
            append 1700000003 quorvane-mdm info three
            read -r second
            echo "$first, then $second"
        }
        append 1700000004 quorvane-mdm info secret 0 /usr/bin/quorvane-mdm private
        $QVCTL bundle - 2> /dev/null | tar -xzO log.txt
    )");
    if (!lines)
        GTEST_SKIP() << "needs systemd-journal-remote, unshare and permission to mount";
    const std::string one = "2023-11-14T22:13:20.000Z debug com.quorvane.mdm general one";
    const std::string two = "2023-11-14T22:13:22.000Z error com.quorvane.mdm general two";
    const std::string forged = "2023-11-14T22:13:22.000Z error com.quorvane.mdm general forged";
    const std::string three = "2023-11-14T22:13:23.000Z info com.quorvane.mdm general three";
    ASSERT_EQ(lines->size(), 21U) << testing::PrintToString(*lines);
    const std::string object = lines->at(13);
    EXPECT_THAT(*lines,
                ElementsAre(HasSubstr("There is no journal"), "69", "log ", one, two, "log --limit 1", two,
                            "log --limit 0", "log --level info", two, "log --since 2023-11-14T22:13:21Z", two,
                            "log --since 1d", object,
                            "[user 65534, /usr/bin/quorvane-mdm (deleted)] " + forged,
                            "[user 0, /usr/bin/logger] " + forged, two + ", then " + three, one, two, three,
                            "2023-11-14T22:13:24.000Z info com.quorvane.mdm general <private>"));
    const auto documented = documentedCommands().at("log").members;
    EXPECT_EQ(membersOf(json::parse(object), documented), documented);
}

TEST_F(ProgramTest, ManualPagesAreWellFormed)
{
    const auto lines = linesOf({"bash", "-ec"}, R"(
        command -v man > /dev/null || exit 77
        for page in $MANUALS/*.[15]; do
            man --warnings -l $page 2>&1 > /dev/null
            # Blanks at the end of a line, and tables that were not filled in.
            grep -nE ' $|^\.\\" (options|commands|managed|sample)' $page || true
        done
    )");
    if (!lines)
        GTEST_SKIP() << "needs man-db";
    EXPECT_THAT(*lines, IsEmpty());
}

struct Completion {
    std::string line;
    /// In any order.
    std::vector<std::string> words;
};

/// Runs the completion scripts on lines that end at the cursor, in a folder with two files.
class CompletionTest : public ProgramTest {
protected:
    CompletionTest()
    {
        std::filesystem::create_directory(device.path("files"));
        device.write(device.path("files/a file.json"), "{}");
        device.write(device.path("files/b.json"), "{}");
    }

    /// The words that `script` prints for $LINE; absent if there is no such shell.
    [[nodiscard]] std::optional<std::vector<std::string>>
    complete(const std::vector<std::string>& shell, const std::string& line, const std::string& script) const
    {
        auto lines = linesOf(shell, "cd $FILES; " + script,
                             {{"PATH", std::string(QV_PROGRAMS "/Tools/qvctl:") + std::getenv("PATH")},
                              {"FILES", device.path("files")},
                              {"APP", QV_PROGRAMS "/App/quorvane-mdm"},
                              {"COMPLETIONS", QV_SOURCES "/Packaging/completions"},
                              {"LINE", line}});
        if (!lines)
            return lines;
        std::erase(*lines, "");
        // Drops the description, and the option of "--option=word".
        for (std::string& word : *lines) {
            word = word.substr(0, word.find('\t'));
            word = word.substr(word.find('=') + 1);
        }
        return lines;
    }

    [[nodiscard]] std::vector<Completion> completions() const
    {
        const auto options =
            complete({"bash", "-c"}, "", R"($APP --help | sed -nE 's/^  (-[^ ]+).*/\1/p' | tr , '\n')");
        const auto sources = complete({"bash", "-c"}, "",
                                      R"($APP --help | sed -nE 's/^  --push.*\{(.*)\}.*/\1/p' | tr , '\n')");
        return {{"qvctl config s", {"show", "set", "schema"}},
                {"qvctl --json config s", {"show", "set", "schema"}},
                {"qvctl --managed-configuration config st", {"status"}},
                {"qvctl config lint ", {"a file.json", "b.json"}},
                {"qvctl config lint b.json ", {"a file.json", "b.json"}},
                {"qvctl --managed-configuration b", {"b.json"}},
                {"qvctl --managed-configuration=b", {"b.json"}},
                {"qvctl config schema --format ", {"json-schema", "appconfig", "sample"}},
                {"qvctl config schema --format=s", {"sample"}},
                {"qvctl config schema --format=sample --j", {"--json"}},
                {"qvctl log --level e", {"error"}},
                {"qvctl status --check=r", {"running"}},
                {"qvctl wait --u", {"--uploaded"}},
                {"qvctl wait --version ", {"1"}},
                {"qvctl log --f", {"--follow"}},
                {"qvctl log --limit ", {}},
                {"qvctl help con", {"config"}},
                {"qvctl help config s", {"show", "set", "schema"}},
                {"qvctl privacy grant ", {"notifications"}},
                {"quorvane-mdm --managed-configuration b", {"b.json"}},
                {"quorvane-mdm --push ", sources.value()},
                {"quorvane-mdm -", options.value()}};
    }
};

TEST_F(CompletionTest, BashCompletesCommandsValuesAndFiles)
{
    for (const Completion& row : completions()) {
        // Splits the line as readline does: at spaces, and around "=".
        const auto words = complete({"bash", "-c"}, row.line, R"(
            for script in $COMPLETIONS/*.bash; do . $script; done
            read -ra COMP_WORDS <<< "${LINE//=/ = }"
            [[ $LINE == *' ' ]] && COMP_WORDS+=('')
            COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
            _${COMP_WORDS//-/_}
            printf '%s\n' "${COMPREPLY[@]}"
        )");
        ASSERT_TRUE(words);
        EXPECT_THAT(*words, testing::UnorderedElementsAreArray(row.words)) << row.line;
    }
}

TEST_F(CompletionTest, FishCompletesCommandsValuesAndFiles)
{
    for (const Completion& row : completions()) {
        const auto words = complete({"fish", "--no-config", "-c"}, row.line, R"(
            for script in $COMPLETIONS/*.fish; source $script; end
            # Without matches inside a word, which version 4 adds.
            complete -C "$LINE" | string match -- (string split -r -m1 ' ' $LINE)[-1]'*'
            true)");
        if (!words)
            GTEST_SKIP() << "needs fish";
        EXPECT_THAT(*words, testing::UnorderedElementsAreArray(row.words)) << row.line;
    }
}

TEST_F(CompletionTest, ZshCompletesCommandsValuesAndFiles)
{
    for (const Completion& row : completions()) {
        // The shell's own functions, which only work at its prompt, are replaced: they print the candidates.
        // The completion of option values by `_arguments` is not tested.
        if (row.line.starts_with("quorvane-mdm --"))
            continue;
        const auto words = complete({"zsh", "-fc"}, row.line, R"(
            compset() { PREFIX=${PREFIX#${~2}} }
            _files() { print -rl -- $PREFIX*(N) }
            _describe() { print -rl -- ${(M)${(@)${(@P)2}%%:*}:#$PREFIX*} }
            _arguments() { print -rl -- ${(M)${(@)${(@)@#\(*\)}%%[\[=]*}:#$PREFIX*} }
            words=("${(@s: :)LINE}") CURRENT=$#words PREFIX=$words[CURRENT]
            autoload -U $COMPLETIONS/_$words[1]
            _$words[1]
        )");
        if (!words)
            GTEST_SKIP() << "needs zsh";
        EXPECT_THAT(*words, testing::UnorderedElementsAreArray(row.words)) << row.line;
    }
}

} // namespace
