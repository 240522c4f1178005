// The command line, and the commands that check, show, install and remove a policy file.

#include "Tests/Tools/ConsoleTest.h"

#include <cerrno>
#include <map>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace {

/// What was flushed and renamed: "flush NAME" and "rename NAME", without the random part of temporary names.
std::vector<std::string> fileOperations;

/// Returns whether the operation is to fail: those on "flush-fails" and "rename-fails" do.
bool addFileOperation(const std::string& operation, const std::filesystem::path& file)
{
    const std::string name = file.filename();
    fileOperations.push_back(operation + " " + (name.starts_with('.') ? "temporary file" : name));
    errno = EIO;
    return name.find(operation + "-fails") != std::string::npos;
}

} // namespace

// Take the place of the C library's functions.
extern "C" int fsync(int descriptor)
{
    const auto file = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
    return addFileOperation("flush", file) ? -1 : static_cast<int>(::syscall(SYS_fsync, descriptor));
}

extern "C" int renameat(int oldFolder, const char* oldName, int newFolder, const char* newName) noexcept
{
    if (addFileOperation("rename", newName))
        return -1;
    return static_cast<int>(::syscall(SYS_renameat2, oldFolder, oldName, newFolder, newName, 0));
}

namespace {

class PolicyCommandTest : public ConsoleTest {
protected:
    PolicyCommandTest()
    {
        folder.write("good.json", R"({"base_domain": "https://a.b"})");
        folder.write("warning.json", R"({"base_domain": "http://a.b"})");
        folder.write("bad.json", R"({"api_key": ["canary"], "device_id": " D "})");
        folder.write("half.json", "{\n  \"api_key\": \"canary\n}");
        folder.write("types.plist", "<plist><dict><key>device_id</key><array><real>inf</real><real>1.5</real>"
                                    "<date>2026-01-02T03:04:05Z</date><data>/wA=</data><false/>"
                                    "<integer>18446744073709551615</integer></array></dict></plist>");
        folder.write("\xff.json", R"({"SchemaVersion": 1})");
        folder.write("\x1b[31m.json",
                     R"({"\u001b[31m": 1, "AllowedAppsBundleIdsForSSOExtension": ["\u001b"]})");
    }
};

/// A command and part of the reason. With --json, standard output has the reason, too.
constexpr const char* usageErrors = R"( | a command is required
stauts | unknown command 'stauts'. Did you mean 'qvctl status'?
config | a command is required
config sohw | unknown command 'sohw'. Did you mean 'qvctl config show'?
Lint | Did you mean 'qvctl config lint'?
config status | Did you mean 'qvctl status'?
start | unknown command 'start'\n
stat\e[31m | unknown command 'stat\x1b[31m'
help config sett | Did you mean 'qvctl config set'?
config --al | unknown option '--al'
--foo status | unknown option '--foo'
status extra | unexpected argument 'extra'\nTry qvctl --help.\n
status --check applied,,running | '' is not a condition
status --check=bogus | 'bogus' is not a condition; use applied,running,uploaded
status --user root --all-users | --all-users excludes --user
status --user secnod-nobody | there is no user 'secnod-nobody'
snapshot --schema --user root | excludes
doctor --user root | --user requires --offline
doctor --probe --offline | --offline excludes --probe
doctor --timeout 0 | --timeout
privacy grant camera | camera
notifications --limit -1 | --limit
log --since yesterday | neither an age
log --level loud | loud
config lint "" | FILE: the file name is empty
config explain "" | FILE: the file name is empty
config set "" | FILE: the file name is empty
push "" | FILE: the file name is empty
config set | FILE is required
config set good.json --timeout 1 | --timeout requires --wait
config show --managed-configuration "" | --managed-configuration needs a file name
config set good.json --managed-configuration . | is a folder of fragments; name the file
wait --timeout -1 | '-1' is not a number of seconds, 0 or more
wait --timeout= | --timeout: 
wait --timeout nan | 'nan' is not a number of seconds, 0 or more
wait --applied --uploaded | --uploaded
wait --version 1 --applied | --version
wait --version 0 | --version
bundle a.zip | a.zip: the name of a bundle must end with .tar.gz)";

TEST_F(PolicyCommandTest, UsageErrorsNameTheProblem)
{
    for (const auto& row : tableRows(usageErrors)) {
        check({row[0], "64", "", row[1]});
        check({"--json " + row[0], "64", R"({"version":1,"error":")", row[1]});
        check({row[0] + " --json", "64", R"({"version":1,"error":")", "qvctl: "});
    }
    EXPECT_FALSE(std::filesystem::exists("managed.json"));
}

/// A command, the variable COLUMNS, part of the output, its greatest width and its greatest number of lines.
constexpr const char* helps = R"(--help |  | Usage: qvctl COMMAND | 80 | 24
help |  | Usage: qvctl COMMAND | 80 | 24
help config set |  | Usage: qvctl config set [OPTIONS] FILE | 80 | 60
help config |  | lint | 80 | 60
config set --help |  | --force | 80 | 60
help log | 50 | --since | 50 | 60
help log | 1 | --since | 60 | 60
help log | x | --since | 80 | 60
help log | 500 | --since | 120 | 60
--version |  | qvctl 0. | 80 | 1)";

TEST_F(PolicyCommandTest, HelpFitsTheScreenAndDescribesEachCommand)
{
    for (const auto& row : tableRows(helps)) {
        setEnvironment("COLUMNS", row[1]);
        check({row[0], "0", row[2]});
        const std::string text = run(row[0]).output;
        EXPECT_THAT(text, testing::Not(testing::ContainsRegex("[^\n]{" + row[3] + "}[^\n]"))) << row[0];
        EXPECT_LE(std::count(text.begin(), text.end(), '\n'), std::stoi(row[4])) << row[0];
    }
}

TEST_F(PolicyCommandTest, CommandsNameFileAndReason)
{
    checkAll(R"(config lint | 66 |  | qvctl: no policy file: DEVICE/managed.json does not exist
config show | 66 |  | qvctl: no policy file: 
config explain --json | 66 | "error":"no policy file: | managed.json does not exist
config lint good.json bad.json good.json | 78 | good.json: no problems found\nbad.json:1:13: error: api_key has the wrong type: ********
config lint warning.json | 0 | warning.json:1:17: warning: base_domain uses http
config lint none.json good.json | 66 | good.json: no problems | none.json: no such file
config lint half.json | 78 | half.json:2:
config lint --json bad.json good.json | 78 | {"version":1,"path":"good.json","findings":[]}\n
config lint --json bad.json | 78 | {"severity":"error","path":"bad.json","key":"api_key","index":null,"line":1,"column":13,
config lint \e[31m.json | 78 | \x1b[31m.json:1:2: warning: \x1b[31m is not a managed key
config lint --json \e[31m.json | 78 | "path":"\u001b[31m.json","key":"\u001b[31m"
config lint --json \e[31m.json | 78 | "problem":"\"\\x1b\" contains a character other than
config lint . | 66 |  | is not a regular file
config lint /dev/zero | 78 | /dev/zero: error
config lint - | 78 | -: error: the file is empty
config show --json --managed-configuration types.plist | 0 | ["inf",1.5,"2026-01-02T03:04:05.000Z","<data ff00>",false,18446744073709551615]
config explain half.json --json | 78 | {"version":1,"path":"half.json","error":"half.json:2: | half.json:2:
config explain none.json | 66 |  | none.json: no such file
config explain bad.json | 0 | api_key has the wrong type: ********; the app ignores it
config schema | 0 | "$ref": "#/$defs/textOrNumber",\n      "writeOnly": true,\n      "examples": ["replace-with-the-api-key"]
config schema --format appconfig | 0 | <bundleId>com.quorvane.mdm</bundleId>
config schema --format sample --json | 0 | {"version":1,"content":{
snapshot --schema | 0 | "configVersion"
push none.json | 66 |  | none.json: No such file
push good.json | 69 |  | not delivered: the app is not running
push good.json --json | 69 | {"version":1,"isDelivered":false,"answer":"error: the app is not | not delivered)");
    check({"config lint --json \xff.json", "0", "\uFFFD.json\",\"findings\":[]}"});
    check({"config explain -", "0", "https://a.b"}, R"({"base_domain": "https://a.b"})");
}

TEST_F(PolicyCommandTest, LintReportsLocationEffectAndFix)
{
    folder.write("file.json", R"({
  "organizationId": 5,
  "base_domain": "http://acme.corp/mdm",
  "api_key": ["canary"],
  "device_id": "  DEV-1 ", "OrganizationId": false,
  "AllowedAppsBundleIdsForSSOExtension": [
    "com.acme.one",
    "nodot"],
  "colour": true
})");
    folder.write("file.plist",
                 "<plist><dict>\n<key>api_key</key>\n <array/>\n"
                 "<key>AllowedAppsBundleIdsForSSOExtension</key><string>a.b,c_d.e</string></dict></plist>");
    EXPECT_EQ(
        run("config lint file.json").output,
        R"(file.json:9:3: warning: colour is not a managed key; it is ignored; remove it unless another program uses it
file.json:2:3: error: organizationId is not a managed key; it is ignored; did you mean "OrganizationId"? Keys are case-sensitive
file.json:8:5: error: AllowedAppsBundleIdsForSSOExtension[1] "nodot" has no "."; it is ignored; use the app's full bundle identifier, such as com.example.mail
file.json:5:46: warning: OrganizationId is true or false; it is converted to "1" or "0"; use a string or a number
file.json:3:18: warning: base_domain uses http; the app uses https instead; write https://
file.json:3:18: warning: base_domain contains a path; the path is prepended to every request path; remove the path unless the backend requires it
file.json:4:14: error: api_key has the wrong type: ********; the app ignores it; use a string or a number
file.json:5:16: note: device_id has leading or trailing white space; it is removed
)");
    EXPECT_EQ(
        run("config lint file.plist --reveal").output,
        R"(file.plist:4:47: error: AllowedAppsBundleIdsForSSOExtension[1] "c_d.e" contains a character other than a-z, A-Z, 0-9, "." and "-"; it is ignored; use the app's bundle identifier, such as com.example.mail
file.plist:3:2: error: api_key has the wrong type: array []; the app ignores it; use a string or a number
)");
}

/// A command as in `check`, and what it does: the file with the content that is installed afterwards, and
/// whether the command installs it (+), only flushes it (=) or does neither (-). The commands run one after
/// the other.
constexpr const char* installations = R"(config clear | 0 | No policy file to remove\n |  | none | -
config set none.json | 66 |  | none.json: no such file | none | -
config set good.json | 0 | managed.json: changed\n | good.json:1:36: note: device_id has leading | good.json | +
config set bad.json | 78 |  | bad.json:1:13: error: api_key has the wrong type: ********; the app ignores it; use a string or a number\nbad.json:1:38: note: device_id has leading or trailing white space; it is removed\nqvctl: bad.json was not installed: fix its errors, or install it anyway with --force | good.json | -
config set bad.json --json | 78 | "outcome":"refused","findings":[{"severity":"error" | bad.json was not installed | good.json | -
config set half.json --force | 78 |  | half.json was not installed: it cannot be parsed | good.json | -
config set good.json | 0 | managed.json: unchanged\n | note | good.json | =
config set good.json --json | 0 | "outcome":"unchanged","isChanged":false,"overridden":{} |  | good.json | =
config set bad.json --force | 0 | managed.json: changed\n | error: api_key | bad.json | +
config set warning.json --json | 0 | "outcome":"installed","isChanged":true |  | warning.json | +
config set warning.json --wait --timeout 0 | 75 | managed.json: unchanged\n | the file was installed, but no configuration was applied yet; the app is not running | warning.json | =
config set good.json --wait --timeout 0 --json | 75 | "isApplied":false,"error":" | the file was installed, but | good.json | +
config show | 0 | api_key                                 ********\n |  | good.json | -
config show --json | 0 | "configuration":{"api_key":"********","device_id":" D "},"sources": |  | good.json | -
config show --reveal | 0 | canary |  | good.json | -
config set longer.json | 0 | managed.json: changed\n | note | longer.json | +
config set good.json | 0 | managed.json: changed\n | note | good.json | +
config clear --json | 0 | "removed":["DEVICE/managed.json"],"fragments":[]} |  | none | *)";

TEST_F(PolicyCommandTest, SetInstallsOnlyValidFilesDurably)
{
    const std::string folderName = std::filesystem::current_path().filename();
    const std::map<std::string, std::vector<std::string>> operations{
        {"-", {}},
        {"*", {"flush " + folderName}},
        {"=", {"flush managed.json", "flush " + folderName}},
        {"+", {"flush temporary file", "rename managed.json", "flush " + folderName}}};
    const std::string good = R"({"api_key": "canary", "device_id": " D "})";
    folder.write("good.json", good);
    folder.write("longer.json", good + "\n");
    ::umask(0); // The modes of new files must not depend on it.
    for (const auto& row : tableRows(installations)) {
        SCOPED_TRACE(row[0]);
        fileOperations.clear();
        check({row.begin(), row.begin() + 4});
        EXPECT_EQ(folder.read("managed.json"), folder.read(row[4]));
        EXPECT_EQ(fileOperations, operations.at(row[5]));
        struct stat status {};
        if (::stat("managed.json", &status) == 0) {
            EXPECT_EQ(status.st_mode & 07777U, ::geteuid() == 0 ? 0644U : 0600U);
        }
    }
    check({"config set -", "0", "managed.json: changed\n", "note"}, good);
    ::chmod("managed.json", 0666);
    check({"config set good.json", "0", "managed.json: changed\n", "note"});
    fileOperations.clear();
    check({"config set good.json --managed-configuration new/sub/managed.json", "0", ": changed\n", "note"});
    EXPECT_THAT(fileOperations,
                testing::ElementsAre("flush " + folderName, "flush new", "flush temporary file",
                                     "rename managed.json", "flush sub"));
    checkAll(
        R"(config set good.json --managed-configuration flush-fails.json | 69 |  | flush-fails.json: Input/output error
config set good.json --managed-configuration flush-fails/a.json | 69 |  | flush-fails: Input/output error
config set good.json --managed-configuration rename-fails.json | 69 |  | rename-fails.json: Input/output error
config set warning.json --managed-configuration \e/a.json | 0 | DEVICE/\x1b/a.json: changed | http)");
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_FALSE(entry.path().filename().string().starts_with('.')) << "a temporary file is left";
}

TEST_F(PolicyCommandTest, ValuesOfSecretAndUnknownKeysAreMasked)
{
    folder.write(
        "managed.json",
        R"({"api_key": "canary", "password": "canary", "base_domain": {"a": "canary"}, "OrganizationId": null,
        "SchemaVersion": [1, {"a": "canary"}], "AllowedAppsBundleIdsForSSOExtension": [{"a": "canary"}],
        "device_id": "\u001b[31m\u202e"})");
    folder.write("token.json", R"({"api_key": canary})");
    checkAll(R"(config show | 0 | device_id                               "\x1b[31m
config show --json | 0 | "password":"********"
config show --json --reveal | 0 | "OrganizationId":null,
config show --json --reveal | 0 | "device_id":"\u001b[31m\u202e","password":"canary"
config explain | 0 | api_key                                 ********\n
config explain --json | 0 | "effective":"********"
config lint | 78 | managed.json:
config lint --json managed.json | 78 | "findings":[{
config lint token.json | 78 | token.json:1:13: error: the file is invalid: 
config set token.json --json | 78 | "outcome":"refused" | was not installed)");
}

/// The names of fragments decide which value has effect.
TEST_F(PolicyCommandTest, CommandsNameTheFragmentOfEachValue)
{
    folder.write("parts/10.json", R"({"device_id": "ONE", "OrganizationId": "1", "a/b": 1})");
    folder.write("parts/30.json", R"({"device_id": "1.5", "AllowedAppsBundleIdsForSSOExtension": ["x"]})");
    folder.write("parts/50.json", "{\n\"device_id\": \" TWO \",\n\"a/b\": 2,\n"
                                  "\"AllowedAppsBundleIdsForSSOExtension\": \"\"}");
    setEnvironment("QUORVANE_MANAGED_CONFIGURATION", "parts");
    checkAll(
        R"(config show | 0 | " TWO "\n    from DEVICE/parts/50.json, which replaces the value in DEVICE/parts/10.json and DEVICE/parts/30.json\n
config show --json | 0 | "device_id":{"path":"DEVICE/parts/50.json","replaced":["DEVICE/parts/10.json","DEVICE/parts/30.json"]}
config explain --json | 0 | "device_id":{"path":"DEVICE/parts/50.json","replaced":[
config lint | 0 | DEVICE/parts/50.json:2:14: note: device_id has leading
config lint | 0 | DEVICE/parts/50.json:3:1: warning: a/b is not
config lint --json | 0 | "path":"DEVICE/parts/50.json","key":"AllowedAppsBundleIdsForSSOExtension","index":0,"line":4,"column":40
status --json | 0 | "policyFile":{"path":"DEVICE/parts","state":"good","reason":null,"places":[],"ignored":[],"fragments":["DEVICE/parts/10.json","DEVICE/parts/30.json","DEVICE/parts/50.json"]
config clear | 64 |  | is a folder of fragments
config show --managed-configuration none/ | 66 |  | none contains no fragments)");
}

} // namespace
