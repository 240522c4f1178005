// The commands that show and change the state that the app stores.

#include "Core/ManagedKeys.h"
#include "Platform/Network/ExchangeRecord.h"
#include "Platform/Outcome.h"
#include "Platform/Push/PushServiceState.h"
#include "Tests/Fakes/Bytes.h"
#include "Tests/Tools/ConsoleTest.h"
#include "Tools/qvctl/Bundle/StoreDescription.h"

#include <boost/json.hpp>
#include <chrono>
#include <fmt/format.h>
#include <fstream>
#include <regex>

namespace json = boost::json;
using namespace Platform;
using testing::HasSubstr;

namespace {

class StateCommandTest : public ConsoleTest {
protected:
    /// A device on which the app has applied `policy`, received pushes and uploaded its token.
    void storeEverything() const
    {
        folder.write("managed.json", policy);
        storeSnapshot(policy, 3);
        StoreFile standard(paths().standardDefaults());
        standard->set(Core::Constants::StorageKeys::remoteNotificationDeviceToken, "canary7f");
        standard->set(Core::Constants::StorageKeys::processedNotificationPayloads, bytesOf(history));
        StoreFile shell(paths().shellState());
        Network::storeExchanges(*shell,
                                {{"mdm.example:443", {.time = {120}, .method = "POST", .statusCode = 200}},
                                 {"other.example:443", {.time = {60}, .method = "GET", .statusCode = 404}}});
        storeOutcomes(*shell, outcomes);
        Push::PushServiceState{Push::PushServiceKind::local, {}}.write(*shell);
    }
    /// The output without the folder and the age of times.
    [[nodiscard]] std::string comparable(const std::string& text) const
    {
        static const std::regex age("[0-9]+ d ago");
        return std::regex_replace(std::regex_replace(text, age, "AGE"),
                                  std::regex(folder.path().parent_path().string()), "DEVICE");
    }

    const char* policy = R"({"base_domain": "https://mdm.example", "api_key": "canary", "device_id": "DEV",
        "AllowedAppsBundleIdsForSSOExtension": "a.b,c.d"})";
    const char* history = R"([{"title": "canary", "body": "canary", "date": 180, "userInfoKeys": []},
        {"date": 120, "userInfoKeys": []}, {"body": "canary\u001b[31m", "date": 60, "userInfoKeys": []}])";
    const Outcomes outcomes{
        {Outcome::Subject::upload, {Outcome::Result::failed, Outcome::Kind::network, -1001, {120}}},
        {Outcome::Subject::push, {Outcome::Result::deferred, Outcome::Kind::alert, 0, {180}}},
        {Outcome::Subject::configurationError, {Outcome::Result::failed, Outcome::Kind::untrusted, 0, {60}}}};
};

/// Commands after "$ ", and their output.
constexpr const char* transcript = R"($ status
Configuration   version 3, applied AGE (2001-01-01T00:16:40.000Z)
organization id absent
base domain     present
api key         present
device id       present
allowed apps    2
Policy file     DEVICE/managed.json (good)
Notifications   not asked yet
device token    present, 4 bytes
push service    local
last upload     failed: it timed out, AGE (2001-01-01T00:02:00.000Z)
last push       alert, deferred, AGE (2001-01-01T00:03:00.000Z)
last error      the policy file was not trusted, AGE (2001-01-01T00:01:00.000Z)
history         3
Application     running in another container or on another machine
$ status --json
{"version":1,"configVersion":3,"lastUpdated":"2001-01-01T00:16:40.000Z","hasOrganizationId":false,"hasBaseDomain":true,"hasApiKey":true,"hasDeviceId":true,"allowedAppCount":2,"policyFile":{"path":"DEVICE/managed.json","state":"good","reason":null,"places":["DEVICE/managed.json"],"ignored":[],"fragments":[]},"notificationPermission":"not asked yet","hasDeviceToken":true,"pushService":{"kind":"local","failureCode":null,"failureTime":null},"lastRequest":{"time":"2001-01-01T00:02:00.000Z","method":"POST","statusCode":200,"errorCode":null},"lastUpload":{"time":"2001-01-01T00:02:00.000Z","result":"failed","cause":"network","statusCode":null,"errorCode":-1001},"lastPush":{"time":"2001-01-01T00:03:00.000Z","kind":"alert","result":"deferred"},"lastConfigurationError":{"time":"2001-01-01T00:01:00.000Z","kind":"untrusted"},"historyCount":3,"isRunning":true,"processId":null,"isOutdated":null}
$ snapshot
version         3 (schema 1)
last updated    AGE (2001-01-01T00:16:40.000Z)
organization id absent
base domain     https://mdm.example
api key         ********
device id       DEV
allowed apps    2
                a.b
                c.d
$ snapshot --json
{"version":1,"allowedAppBundleIds":["a.b","c.d"],"baseDomain":"https://mdm.example","apiKey":"********","deviceId":"DEV","schemaVersion":1,"configVersion":3,"lastUpdated":1000}
$ notifications
AGE  ********  ********
AGE  (no title)
AGE  (no title)  ********
$ notifications --limit 1 --reveal
AGE  canary  canary
$ notifications --limit 0
No notifications
$ notifications --json
{"version":1,"notifications":[{"date":"2001-01-01T00:03:00.000Z","title":"********","body":"********"},{"date":"2001-01-01T00:02:00.000Z","title":null,"body":null},{"date":"2001-01-01T00:01:00.000Z","title":null,"body":"********"}]}
)";

TEST_F(StateCommandTest, CommandsShowWhatIsStored)
{
    storeEverything();
    const auto lock = lockAsApplication();
    std::string printed;
    std::istringstream lines(transcript);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("$ "))
            printed += line + "\n" + comparable(run(line.substr(2)).output);
    }
    EXPECT_EQ(printed, transcript);
    checkAll(R"(status --json --reveal | 0 | "hasDeviceToken":true,"deviceToken":"canary7f","pushService"
snapshot --json --reveal | 0 | "apiKey":"canary"
notifications --reveal | 0 | canary\x1b[31m\n)");
    EXPECT_THAT(json::serialize(Qvctl::Bundle::describeStore(paths().standardDefaults(), {})),
                HasSubstr(R"(,"type":"text","bytes":8})"));
}

TEST_F(StateCommandTest, EveryManagedKeyAppearsInEveryCommand)
{
    json::object policyWithEveryKey;
    for (const Core::ManagedKey& key : Core::managedKeys())
        policyWithEveryKey[key.name] = key.isSecret ? "canary" : key.isList() ? "a.b" : key.name;
    storeSnapshot("{}", 1);
    folder.write("managed.json", json::serialize(policyWithEveryKey));
    const std::string differences = run("wait --timeout 0").diagnostics;
    storeSnapshot(json::serialize(policyWithEveryKey), 2);
    const json::value shown = json::parse(run("config show --json").output);
    const json::value explained = json::parse(run("config explain --json").output);
    const std::string schemas = run("config schema").output + run("config schema --format sample").output;
    const std::string form = run("config schema --format appconfig").output;
    const json::object snapshot = json::parse(run("snapshot --json").output).as_object();
    const std::string texts = run("status").output + run("snapshot").output;
    std::ifstream readme(QV_SOURCES "/README.md");
    const std::string document{std::istreambuf_iterator<char>(readme), {}};
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        SCOPED_TRACE(key.name);
        const std::string name(key.name);
        const std::string value = key.isSecret ? "********" : key.isList() ? "a.b" : name;
        EXPECT_EQ(shown.at("configuration").at(name).as_string(), value);
        EXPECT_THAT(json::serialize(explained.at("keys").at(name).at("effective")), HasSubstr(value));
        EXPECT_THAT(schemas, HasSubstr("\"" + name + "\""));
        EXPECT_THAT(form, HasSubstr((key.isList() ? "stringArray keyName=\"" : "keyName=\"") + name));
        EXPECT_THAT(form, HasSubstr(fmt::format(">{}</language>", key.label)));
        EXPECT_EQ(key.label.find("secret") != std::string_view::npos, key.isSecret);
        EXPECT_EQ(snapshot.contains(key.codingKey), key.isStored());
        EXPECT_EQ(differences.find(name) != std::string::npos, key.isStored());
        EXPECT_THAT(texts, HasSubstr(key.noun));
        EXPECT_THAT(document, HasSubstr("| `" + name + "` |"));
    }
}

/// Subject, result, kind and code of an outcome, and what `status` and `status --json` print.
constexpr const char* namedOutcomes =
    R"(upload | succeeded | status | 201 | last upload     accepted with status 201,  | "result":"succeeded","cause":"status","statusCode":201,"errorCode":null}
upload | failed | status | 503 | last upload     failed with status 503,  | "result":"failed","cause":"status","statusCode":503,"errorCode":null}
upload | failed | address | 0 | failed: the configuration allows no request,  | "cause":"address","statusCode":null,"errorCode":null}
upload | failed | response | 0 | failed: the response was not HTTP,  | "cause":"response"
upload | failed | network | -1001 | failed: it timed out,  | "statusCode":null,"errorCode":-1001}
upload | failed | network | -1201 | failed: the certificate was rejected,  | -1201
upload | failed | network | -1202 | failed: the certificate was rejected,  | -1202
upload | failed | network | -5 | failed: error -5,  | "errorCode":-5}
push | succeeded | silent | 0 | last push       silent, accepted,  | "kind":"silent","result":"succeeded"}
push | failed | alert | 0 | last push       alert, refused,  | "kind":"alert","result":"failed"}
push | failed | none | 0 | last push       refused, its content could not be read,  | "kind":null,"result":"failed"}
configurationError | failed | unreadable | 0 | last error      the policy file could not be read,  | "kind":"unreadable"}
configurationError | failed | malformed | 0 | last error      the policy file could not be parsed,  | "kind":"malformed"}
configurationError | failed | notStored | 0 | last error      the configuration could not be stored,  | "kind":"notStored"})";

TEST_F(StateCommandTest, StatusNamesEachOutcome)
{
    checkAll(R"(status --json | 0 | "lastPush":{"time":null,"kind":null,"result":null}
status | 0 | last error      none recorded\n)");
    for (const auto& row : tableRows(namedOutcomes)) {
        storeOutcome(row[0], row[1], row[2], std::stoi(row[3]), {});
        check({"status", "0", row[4]});
        check({"status --json", "0", row[5]});
    }
}

/// A change of what is stored, and a command as in `check`. The rows follow one another.
constexpr const char* conditions = R"( | wait --timeout 0 | 75 |  | there is no policy file: 
policy {"device_id":"canary-1"} | wait --timeout 0 | 75 |  | qvctl: no configuration was applied yet; the app is not running\n
 | wait --version 1 --timeout 1.2 | 75 |  | the app is not running; waiting for it\nqvctl: no configuration was applied yet; the app is not running\n
 | wait --uploaded --timeout 0 | 75 |  | no configuration was applied yet
policy { | wait --timeout 0 | 78 |  | managed.json:1:2: 
 | status --json | 0 | "state":"malformed","reason":"
 | wait --timeout 1e300 | 78 |  | the policy file cannot be applied: 
policy {"device_id":"canary-1"} | status --check applied | 1 | check applied   not met: no configuration was applied yet\n
running | reload | 69 |  | the app cannot be reached: it has just ended, or runs in another container
snapshot {"device_id":"canary-1"} 2 | wait --timeout 20 | 0 | Version 2 is applied.\n
 | wait --timeout 0 --json | 0 | {"version":1,"isMet":true,"configVersion":2}\n
 | wait --version 2 --timeout 1e300 | 0 | Version 2 is applied.\n
 | wait --version 1 --timeout 0 | 0 | Version 2 is applied.\n
 | wait --version 3 --timeout 0 --json | 75 | {"version":1,"isMet":false,"configVersion":2,"error":"the applied | qvctl: the applied configuration has version 2\n
 | status --check running,applied | 0 | check applied   met\ncheck running   met\n
 | status --check | 1 | check uploaded  not met: no device token is uploaded because base_domain is not set\n
 | status --check uploaded,running --json | 1 | "conditions":[{"name":"running","isMet":true,"reason":null},{"name":"uploaded","isMet":false,"reason":"no
 | config set managed.json --wait --timeout 9 | 0 | The app has applied it.\n
policy {"device_id":"canary-2"} | wait --timeout 0 | 75 |  | qvctl: the applied configuration differs from the policy file in device_id\n
 | status --check applied,running | 1 | check applied   not met: the applied configuration differs
stopped | status --check=applied,running --json | 1 | {"name":"running","isMet":false,"reason":"the app is not running"}]}
snapshot {"base_domain":"mdm.example","device_id":"DEV"} 3 | wait --uploaded --timeout 0 | 75 |  | the device token was not uploaded to the applied backend yet
upload other.example:443 POST 10 200 | wait --uploaded --timeout 0 | 75 |  | the device token was not uploaded to the applied backend yet
upload mdm.example:443 GET 10 200 | wait --uploaded --timeout 0 | 75 |  | the device token was not uploaded to the applied backend yet
upload mdm.example:443 POST 11 200 | wait --uploaded --timeout 0 | 75 |  | the device token was not uploaded to the applied backend yet
upload mdm.example:443 POST 10 300 | status --check uploaded | 1 | not met: the last upload failed with status 300\n
upload mdm.example:443 POST 10 0 | status --check uploaded | 1 | not met: the last upload failed: it timed out\n
upload mdm.example:443 POST 10 204 | wait --uploaded --timeout 20 | 0 | The device token is uploaded.\n
 | wait --uploaded --timeout 20 --json | 0 | {"version":1,"isMet":true,"configVersion":3}\n
snapshot {"base_domain":"mdm.example"} 4 | status --check uploaded | 1 | not met: no device token is uploaded because device_id is not set\n
snapshot {"base_domain":"a\u0020b","device_id":"D"} 5 | status --check uploaded | 1 | not met: the applied configuration allows no upload\n)";

TEST_F(StateCommandTest, ConditionsDependOnWhatIsStored)
{
    std::optional<Storage::FileDescriptor> lock;
    for (const auto& row : tableRows(conditions)) {
        SCOPED_TRACE(row[0]);
        std::istringstream words(row[0]);
        std::string change;
        std::string subject;
        std::int64_t version = 0;
        Network::ExchangeRecord record;
        record.errorCode = -1001;
        words >> change >> subject;
        if (change == "policy")
            folder.write("managed.json", subject);
        else if (change == "snapshot" && words >> version)
            storeSnapshot(subject, version);
        else if (change == "upload" && words >> record.method >> record.pathSegmentCount >> record.statusCode)
            Network::storeExchanges(*StoreFile(paths().shellState()), {{subject, record}});
        else if (change == "running" || change == "stopped")
            lock = change == "running" ? lockAsApplication() : Storage::FileDescriptor();
        const auto begin = std::chrono::steady_clock::now();
        check({row.begin() + 1, row.end()});
        // A policy file that is being written may be invalid for a moment.
        if (row[1] == "wait --timeout 1e300") {
            EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
        }
    }
}

/// A store, its content (none if it is a folder), a command, its exit code and part of the reason.
constexpr const char* damages =
    R"(com.quorvane.mdm.sqlite | no database | notifications | 69 | .sqlite: file is not a database
com.quorvane.mdm.sqlite | no database | status | 69 | .sqlite: file is not a database
shell.sqlite | no database | status --check applied,running | 69 | .sqlite: file is not a database
shell.sqlite |  | privacy grant notifications | 69 | .sqlite is not a regular file; remove it
groups/group.com.quorvane.mdm.sqlite |  | snapshot | 69 | .sqlite is not a regular file; remove it
groups/group.com.quorvane.mdm.sqlite |  | config forget | 69 | .sqlite is not a regular file; remove it
groups/group.com.quorvane.mdm.sqlite | no database | snapshot | 69 | .sqlite: file is not a database
groups/group.com.quorvane.mdm.sqlite | { | snapshot | 78 | .sqlite is damaged: 
groups/group.com.quorvane.mdm.sqlite | {} | status | 78 | .sqlite is damaged: 
groups/group.com.quorvane.mdm.sqlite | {} | wait --timeout 0 | 75 | .sqlite is damaged: )";

TEST_F(StateCommandTest, DamagedStoresFailWithTheReason)
{
    storeEverything();
    std::filesystem::rename("data", "healthy");
    for (const auto& row : tableRows(damages)) {
        SCOPED_TRACE(row[0] + row[1] + row[2]);
        std::filesystem::remove_all("data");
        std::filesystem::copy("healthy", "data", std::filesystem::copy_options::recursive);
        const auto file = paths().stateFolder / row[0];
        if (row[1].starts_with('{')) {
            StoreFile(file)->set(Core::Constants::SnapshotKeys::configSnapshot, bytesOf(row[1]));
        } else {
            for (const char* ending : {"", "-wal", "-shm"})
                std::filesystem::remove(file.string() + ending);
            row[1].empty() ? static_cast<void>(std::filesystem::create_directory(file))
                           : folder.write("data/quorvane-mdm/" + row[0], row[1]);
        }
        const Printed plain = run(row[2]);
        EXPECT_EQ(std::to_string(plain.exitCode), row[3]) << plain.output;
        EXPECT_THAT(plain.output + plain.diagnostics, HasSubstr(row[4]));
        const Printed structured = run(row[2] + " --json");
        EXPECT_EQ(structured.exitCode, plain.exitCode);
        EXPECT_THAT(structured.output, testing::ContainsRegex("\"error\":\".*" + row[4]));
        const bool isStatus = row[2].starts_with("status"); // The rest is shown.
        EXPECT_EQ(plain.output.find("managed.json (good)") != std::string::npos, isStatus);
        EXPECT_EQ(structured.output.find(R"("state":"good")") != std::string::npos, isStatus);
    }
}

TEST_F(StateCommandTest, ChangesReportTheirResult)
{
    checkAll(R"(snapshot | 66 |  | qvctl: no snapshot stored in DEVICE/data/
snapshot --json | 66 | {"version":1,"error":"no snapshot stored in  | no snapshot stored
status | 0 | Configuration   none applied yet\n
notifications | 0 | No notifications\n
notifications --json | 0 | {"version":1,"notifications":[]}\n
config forget | 0 | No snapshot stored in 
privacy grant notifications | 0 | : allowed\n
status --json | 0 | "notificationPermission":"allowed"
privacy revoke notifications --json | 0 | "notificationPermission":"denied"}
status | 0 | Notifications   denied\n
privacy reset notifications | 0 | : not asked yet\n)");
    storeEverything();
    check({"config forget --json", "0", R"("removed":true,"policyInForce":true})"});
    storeEverything();
    checkAll(
        R"(config forget | 0 | managed.json still exists: the app stores a new snapshot when this file changes
snapshot | 66 |  | no snapshot stored in )");
    std::filesystem::remove("managed.json");
    check({"config forget --json", "0", R"("removed":true,"policyInForce":false})"});
    for (const char* file : {"shell.sqlite-wal", "shell.bell", "groups/group.com.quorvane.mdm.sqlite-shm"}) {
        const auto link = paths().stateFolder / file;
        std::filesystem::remove(link);
        std::filesystem::create_symlink(folder.path("target"), link);
        for (const char* words : {"privacy grant notifications", "config forget"})
            check({words, "69", "",
                   "nothing was changed: " + link.string() + " is a symbolic link; remove it\n"});
        std::filesystem::remove(link);
    }
}

} // namespace
