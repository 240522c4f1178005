// The checks of doctor that need neither an app nor a network.

#include "Platform/Network/ExchangeRecord.h"
#include "Platform/Outcome.h"
#include "Platform/Push/PushServiceState.h"
#include "Platform/Push/ShellState.h"
#include "Platform/Push/UnifiedPushRegistration.h"
#include "Tests/Tools/ConsoleTest.h"
#include "Tools/qvctl/Doctor/Examination.h"
#include "Tools/qvctl/RequestRehearsal.h"

#include <fmt/format.h>

#include <functional>
#include <map>
#include <sys/stat.h>

using namespace Platform;
using namespace Platform::Push;
using namespace Qvctl::Doctor;
using Kind = PushServiceKind;
using Failure = PushServiceState::Failure;

namespace {

constexpr const char* serverName = "org.freedesktop.Notifications";
constexpr const char* applicationName = "com.quorvane.mdm";
constexpr const char* distributorName = "org.unifiedpush.Distributor.one";

/// A healthy device, for rows to break in one place.
class DoctorTest : public ConsoleTest {
protected:
    DoctorTest()
    {
        {
            StoreFile standard(paths().standardDefaults());
            standard->set(Core::Constants::StorageKeys::remoteNotificationDeviceToken, "canary7f");
            StoreFile shell(paths().shellState());
            ShellState(*shell).setAuthorizationStatus(AuthorizationStatus::authorized);
            shell->set(UnifiedPushRegistration::distributorKey, distributorName);
            PushServiceState{Kind::unifiedPush, {}}.write(*shell);
            Network::storeExchanges(*shell, {{"mdm.example:443", exchange}});
        }
        std::filesystem::rename("data", "healthy");
        reset();
    }

    void reset()
    {
        std::filesystem::remove_all("data");
        std::filesystem::copy("healthy", "data", std::filesystem::copy_options::recursive);
        std::filesystem::remove_all("managed.json");
        folder.write("managed.json", policy);
        setEnvironment("UNIFIEDPUSH_DISTRIBUTOR", "");
        lock = lockAsApplication();
        snapshot = Core::ConfigurationSnapshot::make(configOf(policy), 1, {1000});
        names = {{serverName}, {applicationName, distributorName}};
    }

    /// Returns "VERDICT: FOUND -> FIX" for a check.
    std::string examine(std::string_view check)
    {
        const Qvctl::Options options;
        const Qvctl::DoctorOptions limits;
        Examination examination{options, limits, CheckReport([](const CheckResult&) {})};
        examinePolicy(examination);
        examineState(examination);
        examination.snapshot = snapshot;
        examination.busNames = names;
        if (!names)
            examination.report.failed("bus.session", "There is no bus.", "Log in.");
        examineNotifications(examination);
        examineUpload(examination);
        examineOutcomes(examination);
        std::string found;
        for (const CheckResult& result : examination.report.checks()) {
            const std::string text =
                fmt::format("{}: {} -> {}", verdictName(result.verdict), result.found, result.fix);
            EXPECT_THAT(text, testing::Not(testing::HasSubstr("canary"))) << result.identifier;
            EXPECT_EQ(result.fix.empty(), result.verdict == Verdict::ok ||
                                              (result.verdict == Verdict::skipped && result.cause.empty()))
                << text;
            if (result.identifier == check)
                found = text;
        }
        return found;
    }
    const char* policy = R"({"base_domain": "https://mdm.example", "device_id": "DEV", "api_key": "canary"})";
    const Network::ExchangeRecord exchange{
        .time = {60},
        .method = "POST",
        .pathSegmentCount = Network::pathSegmentCount(Qvctl::uploadAddress(configOf(policy))->url),
        .statusCode = 200};
    std::optional<Storage::FileDescriptor> lock;
    std::optional<Core::ConfigurationSnapshot> snapshot;
    std::optional<Linux::SessionBusNames> names;
};

/// What is changed on the healthy device (changes separated by commas, or the policy), a check, and the
/// beginning of "VERDICT: FOUND -> FIX".
constexpr const char* diagnoses = R"( | policy.file | ok: DEVICE/managed.json exists. -> 
 | policy.permissions | ok: Only root and this user can change DEVICE/managed.json. -> 
 | policy.syntax | ok: Valid JSON. -> 
 | policy.values | ok: Every value is used as written. -> 
 | state.folder | ok: Only this user can access DEVICE/data/quorvane-mdm. -> 
 | app.running | ok: The app is running in another container or on another machine. -> 
 | notifications.permission | ok: The user allows notifications. -> 
 | notifications.server | ok: A notification server is running. -> 
 | push.distributor | ok: Found org.unifiedpush.Distributor.one. -> 
 | push.activation | ok: The session bus can start the app for a push. -> 
 | push.registration | ok: There is a device token of 4 bytes, from org.unifiedpush.Distributor.one. -> 
 | upload.last | ok: The backend accepted the device token on 2001-01-01 00:01 UTC. -> 
 | push.last | skipped: The app has not recorded any pushes. -> 
 | policy.lastError | ok: The app has not recorded any error of the configuration. -> 
no policy | policy.file | failed: DEVICE/managed.json does not exist. -> Deliver it
no policy | policy.permissions | skipped: Not checked; fix policy.file first.
no policy | policy.values | skipped: Not checked; fix policy.file first.
pipe | policy.file | failed: DEVICE/managed.json is not a regular file. -> Make it a regular file
writable policy | policy.permissions | failed: DEVICE/managed.json can be written by others (mode 0666), so the app does not trust it. -> Remove that permission (chmod go-w).
writable policy | policy.syntax | skipped: Not checked; fix policy.permissions first.
{"api_key": "canary | policy.syntax | failed: DEVICE/managed.json:1:20: ends inside a string. -> Correct the file
{"api_key": "canary | policy.values | skipped: Not checked; fix policy.syntax first.
{\n"api_key": ["canary"]} | policy.values | failed: Line 2: api_key has the wrong type: ********; the app ignores it. -> Use a string or a number. For details, run: qvctl config lint DEVICE/managed.json
{"base_domain": "http://a.b/c"} | policy.values | warning: Line 1: base_domain uses http; the app uses https instead (and 1 more). -> Write https://. For
{"device_id": 1} | policy.values | ok: Line 1: device_id is a number; it is converted to a string. -> 
{} | policy.values | warning: DEVICE/managed.json is empty; nothing is configured. -> Start
group | state.folder | warning: DEVICE/data/quorvane-mdm is open to other users (mode 0750). -> Run: chmod 700 DEVICE/data/quorvane-mdm
others | state.folder | warning: DEVICE/data/quorvane-mdm is open to other users (mode 0705). -> Run: chmod 700
writable data | state.folder | failed: The app does not use DEVICE/data/quorvane-mdm: 
writable data | upload.last | skipped: Not checked; fix state.folder first.
no state | state.folder | skipped: DEVICE/data/quorvane-mdm does not exist yet; the app creates it on first launch. -> 
no state | app.running | failed: The app has never run for this user. -> Start
file | state.folder | failed: DEVICE/data/quorvane-mdm cannot be reached past DEVICE/data: Not a directory. -> 
no app | app.running | failed: The app is not running, so it receives no policy changes and no pushes. -> Start
denied | notifications.permission | failed: The user does not allow notifications. -> Ask
not asked | notifications.permission | failed: The user has not been asked yet. -> Open the app
damaged shell | notifications.permission | failed: Cannot read DEVICE/data/quorvane-mdm/shell.sqlite: file is not a database. -> Restart
damaged shell | upload.last | skipped: Cannot read DEVICE/data/quorvane-mdm/shell.sqlite: 
damaged shell | push.last | skipped: Cannot read DEVICE/data/quorvane-mdm/shell.sqlite: 
startable server | notifications.server | ok: The session bus can start a notification server. -> 
no server | notifications.server | failed: There is no notification server: no program owns org.freedesktop.Notifications. -> Install
no bus | notifications.server | skipped: Not checked; fix bus.session first.
no bus | push.activation | skipped: Not checked; fix bus.session first.
no distributor | push.distributor | failed: There is no push distributor on the session bus. -> Install
no distributor | push.registration | skipped: There is a device token of 4 bytes, from org.unifiedpush.Distributor.one; fix push.distributor first.
no distributor, older app | push.distributor | skipped: There is no push distributor on the session bus. The app has not recorded whether
select two | push.distributor | failed: org.unifiedpush.Distributor.two, selected by UNIFIEDPUSH_DISTRIBUTOR, is not on the session bus, and the app uses no other; available: org.unifiedpush.Distributor.one. -> Start it
select one | push.distributor | ok: Found
unavailable | push.distributor | failed: The app has no access to the session bus. -> Restart
local | push.distributor | ok: No distributor is needed: the app accepts pushes at DEVICE/run/quorvane-mdm/push.sock. -> 
local | push.registration | ok: There is a device token of 4 bytes for --push local. -> 
local | push.activation | skipped: Not needed
no socket | push.distributor | failed: The app does not accept pushes at DEVICE/run/quorvane-mdm/push.sock. -> Look
local, no app | push.distributor | ok: Found 
only running | push.activation | failed: The session bus cannot start the app for a push: it has no service file for com.quorvane.mdm.
off | push.activation | skipped: Not needed
off | push.registration | warning: There is a device token of 4 bytes, but the app runs with --push off. -> Restart
no token | push.registration | failed: There is no device token. -> Restart the app without --push off
no token | upload.last | skipped: Not checked; fix push.registration first.
no token, no app | push.registration | skipped: There is no device token; fix app.running first.
no token, offline | push.registration | failed: There is no device token, and the registration on 2001-01-01 00:00 UTC failed: the distributor was offline. -> 
damaged standard | push.registration | failed: Cannot read DEVICE/data/quorvane-mdm/com.quorvane.mdm.sqlite: 
gone | push.registration | warning: There is a device token of 4 bytes, from gone, which is no longer on the session bus. -> Start
refused | push.registration | warning: There is a device token of 4 bytes, from org.unifiedpush.Distributor.one, but the registration on 2001-01-01 00:00 UTC failed: the distributor refused it. -> 
unknown failure | push.registration | warning: There is a device token of 4 bytes, from org.unifiedpush.Distributor.one, but the registration on 2001-01-01 00:00 UTC failed: unknown error. -> 
replaced | push.registration | warning: There is a device token of 4 bytes, from org.unifiedpush.Distributor.one, which replaced old. -> If
replaced, select one | push.registration | ok: There is a device token of 4 bytes
status 503 | upload.last | failed: The upload on 2001-01-01 00:01 UTC failed with status 503. -> Restart
status 302 | upload.last | failed: The upload on 2001-01-01 00:01 UTC failed with status 302. -> Restart
no connection | upload.last | failed: The upload on 2001-01-01 00:01 UTC failed: the connection failed. -> Restart
other method | upload.last | skipped: The last request to mdm.example:443, on 2001-01-01 00:01 UTC, was not an upload
other path | upload.last | skipped: The last request to mdm.example:443, on 2001-01-01 00:01 UTC, was not an upload
no request | upload.last | warning: The app has not sent the device token to mdm.example:443 yet. -> Restart
no snapshot | upload.last | skipped: No token is uploaded because no backend is configured. -> 
no device | upload.last | warning: No token is uploaded because device_id is not set. -> Set
unusable address | upload.last | skipped: The stored configuration does not allow an upload. -> 
accepted alert | push.last | ok: The last push, an alert on 2001-01-01 00:01 UTC, was accepted. -> 
refused push | push.last | warning: The last push, a silent one on 2001-01-01 00:01 UTC, was refused. -> The app's log
deferred push | push.last | warning: The last push, a silent one on 2001-01-01 00:01 UTC, could not be accepted; the sender
unreadable push | push.last | warning: The last push, on 2001-01-01 00:01 UTC, was refused because its content could not be read. -> Check
untrusted | policy.lastError | ok: The last error of the configuration was on 2001-01-01 00:01 UTC: the policy file was not trusted. It has been corrected since. -> 
not stored before | policy.lastError | ok: The last error of the configuration was on 2001-01-01 00:01 UTC: the configuration could not be stored. It has been corrected since. -> 
not stored since | policy.lastError | warning: The last error of the configuration was on 2001-01-01 00:16 UTC: the configuration could not be stored. -> 
malformed, half | policy.lastError | skipped: The last error of the configuration was on 2001-01-01 00:01 UTC: the policy file could not be parsed; fix policy.syntax first.)";

TEST_F(DoctorTest, ChecksReportWhatIsWrong)
{
    using Result = Outcome::Result;
    using Subject = Outcome::Subject;
    using OutcomeKind = Outcome::Kind;
    const auto mode = [](const char* path, unsigned value) {
        std::filesystem::permissions(path, std::filesystem::perms(value));
    };
    const auto setText = [](std::string_view key, const char* text) {
        StoreFile(paths().shellState())->set(key, text);
    };
    const auto push = [](Kind kind, std::optional<std::int64_t> failureCode = {}) {
        std::optional<Failure> failure;
        if (failureCode)
            failure = Failure{*failureCode, {}};
        PushServiceState{kind, failure}.write(*StoreFile(paths().shellState()));
    };
    const auto upload = [this](std::int64_t status, std::int64_t error = 0, const char* method = "POST",
                               int segments = 0) {
        auto record = exchange;
        record.statusCode = status;
        record.errorCode = error;
        record.method = method;
        record.pathSegmentCount += segments;
        Network::storeExchanges(*StoreFile(paths().shellState()), {{"mdm.example:443", record}});
    };
    const auto outcome = [](Subject subject, Result result, OutcomeKind kind, Date time = {60}) {
        storeOutcomes(*StoreFile(paths().shellState()), {{subject, {result, kind, 0, time}}});
    };
    const auto permit = [](AuthorizationStatus status) {
        ShellState(*StoreFile(paths().shellState())).setAuthorizationStatus(status);
    };
    const auto damage = [this](const std::string& store) {
        for (const char* ending : {"-wal", "-shm"})
            std::filesystem::remove(paths().stateFolder / (store + ending));
        folder.write("data/quorvane-mdm/" + store, "no database");
    };
    const auto removeToken = [] {
        StoreFile(paths().standardDefaults())
            ->removeObject(Core::Constants::StorageKeys::remoteNotificationDeviceToken);
    };
    const auto select = [this](const char* name) { setEnvironment("UNIFIEDPUSH_DISTRIBUTOR", name); };
    const auto makePipe = [] {
        std::filesystem::remove("managed.json");
        ::mkfifo("managed.json", 0600);
    };
    const auto makeFile = [this] {
        std::filesystem::remove_all("data");
        folder.write("data", "");
    };
    const std::map<std::string, std::function<void()>> changes{
        {"no policy", [] { std::filesystem::remove("managed.json"); }},
        {"pipe", makePipe},
        {"writable policy", [&] { mode("managed.json", 0666); }},
        {"group", [&] { mode("data/quorvane-mdm", 0750); }},
        {"others", [&] { mode("data/quorvane-mdm", 0705); }},
        {"writable data", [&] { mode("data", 0777); }},
        {"no state", [] { std::filesystem::remove_all("data"); }},
        {"file", makeFile},
        {"no app", [&] { lock.reset(); }},
        {"denied", [&] { permit(AuthorizationStatus::denied); }},
        {"not asked", [&] { permit(AuthorizationStatus::notDetermined); }},
        {"damaged shell", [&] { damage("shell.sqlite"); }},
        {"damaged standard", [&] { damage("com.quorvane.mdm.sqlite"); }},
        {"startable server",
         [&] {
             *names = {{}, {serverName}};
         }},
        {"no server", [&] { names->running.clear(); }},
        {"no bus", [&] { names.reset(); }},
        {"no distributor", [&] { names->startable = {applicationName}; }},
        {"older app", [] { StoreFile(paths().shellState())->removeObject("PushService.State"); }},
        {"select two", [&] { select("two"); }},
        {"select one", [&] { select("one"); }},
        {"unavailable", [&] { push(Kind::unavailable); }},
        {"local", [&] { push(Kind::local); }},
        {"no socket", [&] { push(Kind::local, 1); }},
        {"only running",
         [&] {
             *names = {{serverName, applicationName}, {distributorName}};
         }},
        {"off", [&] { push(Kind::off); }},
        {"no token", removeToken},
        {"offline", [&] { push(Kind::unifiedPush, 4); }},
        {"gone", [&] { setText(UnifiedPushRegistration::distributorKey, "gone"); }},
        {"refused", [&] { push(Kind::unifiedPush, 6); }},
        {"unknown failure", [&] { push(Kind::unifiedPush, -1); }},
        {"replaced", [&] { setText(UnifiedPushRegistration::replacedDistributorKey, "old"); }},
        {"status 503", [&] { upload(503); }},
        {"status 302", [&] { upload(302); }},
        {"no connection", [&] { upload(0, -1004); }},
        {"other method", [&] { upload(200, 0, "GET"); }},
        {"other path", [&] { upload(200, 0, "POST", 1); }},
        {"no request", [&] { Network::storeExchanges(*StoreFile(paths().shellState()), {}); }},
        {"no snapshot", [&] { snapshot.reset(); }},
        {"no device", [&] { snapshot->config.deviceId.reset(); }},
        {"unusable address", [&] { snapshot->config.baseDomain = "a b"; }},
        {"accepted alert", [&] { outcome(Subject::push, Result::succeeded, OutcomeKind::alert); }},
        {"refused push", [&] { outcome(Subject::push, Result::failed, OutcomeKind::silent); }},
        {"deferred push", [&] { outcome(Subject::push, Result::deferred, OutcomeKind::silent); }},
        {"unreadable push", [&] { outcome(Subject::push, Result::failed, OutcomeKind::none); }},
        {"untrusted", [&] { outcome(Subject::configurationError, Result::failed, OutcomeKind::untrusted); }},
        {"not stored before",
         [&] { outcome(Subject::configurationError, Result::failed, OutcomeKind::notStored); }},
        {"not stored since",
         [&] { outcome(Subject::configurationError, Result::failed, OutcomeKind::notStored, {1001}); }},
        {"malformed", [&] { outcome(Subject::configurationError, Result::failed, OutcomeKind::malformed); }},
        {"half", [&] { folder.write("managed.json", "{"); }},
    };
    for (const auto& row : rowsOf(diagnoses)) {
        const bool isPolicy = row[0].starts_with('{');
        if (isPolicy)
            folder.write("managed.json", row[0]);
        std::istringstream changed(isPolicy ? "" : row[0]);
        for (std::string name; std::getline(changed >> std::ws, name, ',');)
            changes.at(name)();
        EXPECT_THAT(examine(row[1]), testing::StartsWith(row[2])) << row[0];
        if (!row[0].empty())
            reset();
    }
}

TEST(CheckReportTest, DependentChecksNameTheRootCause)
{
    std::vector<std::string> observed;
    CheckReport report([&](const CheckResult& check) { observed.push_back(check.identifier); });
    report.failed("first", "Wrong.", "Correct it.");
    EXPECT_TRUE(report.isPrevented("second", {"other", "first"}));
    EXPECT_TRUE(report.isPrevented("third", {"second"}, "Found something"));
    report.skipped("fourth", "Not needed.");
    report.warning("fifth", "Odd.", "Look.");
    EXPECT_FALSE(report.isPrevented("sixth", {"fourth", "fifth"}));
    EXPECT_THAT(observed, testing::ElementsAre("first", "second", "third", "fourth", "fifth"));
    EXPECT_EQ(report.checks().at(2).found, "Found something; fix first first.");
    EXPECT_EQ(report.checks().at(2).cause, "first");
    EXPECT_EQ(report.firstFailure()->identifier, "first");
    EXPECT_EQ(report.count(Verdict::skipped), 3U);
}

} // namespace
