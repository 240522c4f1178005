// The checks of doctor that need neither an app nor a network.

#include "Platform/Network/ExchangeRecord.h"
#include "Platform/Outcome.h"
#include "Platform/Push/PushServiceState.h"
#include "Platform/Push/ShellState.h"
#include "Platform/Push/UnifiedPushRegistration.h"
#include "Tests/Tools/ConsoleTest.h"
#include "Tools/qvctl/Doctor/Examination.h"

#include <fmt/format.h>

#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <sys/stat.h>

using namespace Platform;
using namespace Platform::Push;
using namespace Qvctl::Doctor;
using Kind = PushServiceKind;
using Failure = PushServiceState::Failure;

namespace {

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
        failedCheck.clear();
        names = {{"org.freedesktop.Notifications"}, {"com.quorvane.mdm", distributorName}};
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
        if (!failedCheck.empty())
            examination.report.failed(failedCheck, "It is broken.", "Repair it.");
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
    /// With the segments of the path to which the token is uploaded.
    const Network::ExchangeRecord exchange{
        .time = {60}, .method = "POST", .pathSegmentCount = 10, .statusCode = 200};
    std::optional<Storage::FileDescriptor> lock;
    std::optional<Core::ConfigurationSnapshot> snapshot;
    std::optional<Linux::SessionBusNames> names;
    /// A check that another part of doctor makes.
    std::string failedCheck;
};

/// What is changed on the healthy device (changes with their arguments, separated by commas, or the policy),
/// a check, and the beginning of "VERDICT: FOUND -> FIX".
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
remove managed.json | policy.file | failed: DEVICE/managed.json does not exist. -> Deliver it
remove managed.json, pipe managed.json | policy.file | failed: DEVICE/managed.json is not a regular file. -> Make it a regular file
mode managed.json 0666 | policy.permissions | failed: DEVICE/managed.json can be written by others (mode 0666), so the app does not trust it. -> Remove that permission (chmod go-w).
mode managed.json 0666 | policy.values | skipped: Not checked; fix policy.permissions first.
{"api_key": "canary | policy.syntax | failed: DEVICE/managed.json:1:20: ends inside a string. -> Correct the file
{\n"api_key": ["canary"]} | policy.values | failed: Line 2: api_key has the wrong type: ********; the app ignores it. -> Use a string or a number. For details, run: qvctl config lint DEVICE/managed.json
{"base_domain": "http://a.b/c"} | policy.values | warning: Line 1: base_domain uses http; the app uses https instead (and 1 more). -> Write https://. For
{"device_id": 1} | policy.values | ok: Line 1: device_id is a number; it is converted to a string. -> 
{} | policy.values | warning: DEVICE/managed.json is empty; nothing is configured. -> Start
mode data/quorvane-mdm 0750 | state.folder | warning: DEVICE/data/quorvane-mdm is open to other users (mode 0750). -> Run: chmod 700 DEVICE/data/quorvane-mdm
mode data/quorvane-mdm 0705 | state.folder | warning: DEVICE/data/quorvane-mdm is open to other users (mode 0705). -> Run: chmod 700
mode data 0777 | state.folder | failed: The app does not use DEVICE/data/quorvane-mdm: 
remove data | state.folder | skipped: DEVICE/data/quorvane-mdm does not exist yet; the app creates it on first launch. -> 
remove data | app.running | failed: The app has never run for this user. -> Start
remove data/quorvane-mdm, write data/quorvane-mdm x | state.folder | failed: DEVICE/data/quorvane-mdm is not a folder. -> Move it away
remove data, write data x | state.folder | failed: DEVICE/data/quorvane-mdm cannot be reached past DEVICE/data: Not a directory. -> 
permission 1 | notifications.permission | failed: The user does not allow notifications. -> Ask
permission 0 | notifications.permission | failed: The user has not been asked yet. -> Open the app
damage shell.sqlite | notifications.permission | failed: Cannot read DEVICE/data/quorvane-mdm/shell.sqlite: file is not a database. -> Restart
damage shell.sqlite | upload.last | skipped: Cannot read DEVICE/data/quorvane-mdm/shell.sqlite: 
damage shell.sqlite | push.last | skipped: Cannot read DEVICE/data/quorvane-mdm/shell.sqlite: 
running, startable org.freedesktop.Notifications | notifications.server | ok: The session bus can start a notification server. -> 
running | notifications.server | failed: There is no notification server: no program owns org.freedesktop.Notifications. -> Install
no-bus, failed bus.session | push.distributor | skipped: Not checked; fix bus.session first.
no-bus, failed bus.session | push.activation | skipped: Not checked; fix bus.session first.
startable com.quorvane.mdm | push.distributor | failed: There is no push distributor on the session bus. -> Install
startable com.quorvane.mdm | push.registration | skipped: There is a device token of 4 bytes, from org.unifiedpush.Distributor.one; fix push.distributor first.
startable com.quorvane.mdm, older-app | push.distributor | skipped: There is no push distributor on the session bus. The app has not recorded whether
select two | push.distributor | failed: org.unifiedpush.Distributor.two, selected by UNIFIEDPUSH_DISTRIBUTOR, is not on the session bus, and the app uses no other; available: org.unifiedpush.Distributor.one. -> Start it
push unavailable | push.distributor | failed: The app has no access to the session bus. -> Restart
push local | push.distributor | ok: No distributor is needed: the app accepts pushes at DEVICE/run/quorvane-mdm/push.sock. -> 
push local | push.registration | ok: There is a device token of 4 bytes for --push local. -> 
push local | push.activation | skipped: Not needed
push local 1 | push.distributor | failed: The app does not accept pushes at DEVICE/run/quorvane-mdm/push.sock. -> Look
running org.freedesktop.Notifications com.quorvane.mdm, startable org.unifiedpush.Distributor.one | push.activation | failed: The session bus cannot start the app for a push: it has no service file for com.quorvane.mdm.
push off | push.activation | skipped: Not needed
push off | push.registration | warning: There is a device token of 4 bytes, but the app runs with --push off. -> Restart
no-token | push.registration | failed: There is no device token. -> Restart the app without --push off
no-token | upload.last | skipped: Not checked; fix push.registration first.
no-token, no-app | push.registration | skipped: There is no device token; fix app.running first.
no-token, push UnifiedPush 4 | push.registration | failed: There is no device token, and the registration on 2001-01-01 00:00 UTC failed: the distributor was offline. -> 
damage com.quorvane.mdm.sqlite | push.registration | failed: Cannot read DEVICE/data/quorvane-mdm/com.quorvane.mdm.sqlite: 
distributor gone | push.registration | warning: There is a device token of 4 bytes, from gone, which is no longer on the session bus. -> Start
push UnifiedPush 6 | push.registration | warning: There is a device token of 4 bytes, from org.unifiedpush.Distributor.one, but the registration on 2001-01-01 00:00 UTC failed: the distributor refused it. -> 
push UnifiedPush -1 | push.registration | warning: There is a device token of 4 bytes, from org.unifiedpush.Distributor.one, but the registration on 2001-01-01 00:00 UTC failed: unknown error. -> 
replaced old | push.registration | warning: There is a device token of 4 bytes, from org.unifiedpush.Distributor.one, which replaced old. -> If
replaced old, select one | push.registration | ok: There is a device token of 4 bytes
upload 302 | upload.last | failed: The upload on 2001-01-01 00:01 UTC failed with status 302. -> Restart
upload 302, failed backend.address | upload.last | skipped: The upload on 2001-01-01 00:01 UTC failed with status 302; fix backend.address first.
upload 302, failed backend.connect | upload.last | skipped: The upload on 2001-01-01 00:01 UTC failed with status 302; fix backend.connect first.
upload 302, failed backend.tls | upload.last | skipped: The upload on 2001-01-01 00:01 UTC failed with status 302; fix backend.tls first.
upload 302, failed backend.certificate | upload.last | skipped: The upload on 2001-01-01 00:01 UTC failed with status 302; fix backend.certificate first.
upload 302, failed backend.name | upload.last | skipped: The upload on 2001-01-01 00:01 UTC failed with status 302; fix backend.name first.
upload 302, failed backend.dates | upload.last | skipped: The upload on 2001-01-01 00:01 UTC failed with status 302; fix backend.dates first.
upload 0 -1004 | upload.last | failed: The upload on 2001-01-01 00:01 UTC failed: the connection failed. -> Restart
upload 200 0 1 | upload.last | skipped: The last request to mdm.example:443, on 2001-01-01 00:01 UTC, was not an upload
no-request | upload.last | warning: The app has not sent the device token to mdm.example:443 yet. -> Restart
no-snapshot | upload.last | skipped: No token is uploaded because no backend is configured. -> 
no-device | upload.last | warning: No token is uploaded because device_id is not set. -> Set
bad-address | upload.last | skipped: The stored configuration does not allow an upload. -> 
outcome push succeeded alert 0 60 | push.last | ok: The last push, an alert on 2001-01-01 00:01 UTC, was accepted. -> 
outcome push failed silent 0 60 | push.last | warning: The last push, a silent one on 2001-01-01 00:01 UTC, was refused. -> The app's log
outcome push deferred silent 0 60 | push.last | warning: The last push, a silent one on 2001-01-01 00:01 UTC, could not be accepted; the sender
outcome push failed none 0 60 | push.last | warning: The last push, on 2001-01-01 00:01 UTC, was refused because its content could not be read. -> Check
outcome configurationError failed untrusted 0 60 | policy.lastError | ok: The last error of the configuration was on 2001-01-01 00:01 UTC: the policy file was not trusted. It has been corrected since. -> 
outcome configurationError failed notStored 0 1000 | policy.lastError | ok: The last error of the configuration was on 2001-01-01 00:16 UTC: the configuration could not be stored. It has been corrected since. -> 
outcome configurationError failed notStored 0 1001 | policy.lastError | warning: The last error of the configuration was on 2001-01-01 00:16 UTC: the configuration could not be stored. -> 
outcome configurationError failed malformed 0 60, write managed.json { | policy.lastError | skipped: The last error of the configuration was on 2001-01-01 00:01 UTC: the policy file could not be parsed; fix policy.syntax first.)";

TEST_F(DoctorTest, ChecksReportWhatIsWrong)
{
    std::vector<std::string> words; // A change and its arguments.
    const auto number = [&](std::size_t index) { return words[index].empty() ? 0 : std::stoi(words[index]); };
    const auto shell = [] { return StoreFile(paths().shellState()); };
    const auto twoNames = [&] { return std::set<std::string, std::less<>>{words[1], words[2]}; };
    const auto damage = [&] {
        for (const char* ending : {"-wal", "-shm"})
            std::filesystem::remove(paths().stateFolder / (words[1] + ending));
        folder.write("data/quorvane-mdm/" + words[1], "no database");
    };
    const auto upload = [&] {
        auto record = exchange;
        record.statusCode = number(1);
        record.errorCode = number(2);
        record.pathSegmentCount += number(3);
        Network::storeExchanges(*shell(), {{"mdm.example:443", record}});
    };
    const auto push = [&] {
        auto kind = Kind::unifiedPush;
        while (pushServiceName(kind) != words[1])
            kind = Kind(static_cast<int>(kind) + 1);
        const auto failure = words[2].empty() ? std::nullopt : std::optional(Failure{number(2), {}});
        PushServiceState{kind, failure}.write(*shell());
    };
    const auto removeToken = [] {
        StoreFile(paths().standardDefaults())
            ->removeObject(Core::Constants::StorageKeys::remoteNotificationDeviceToken);
    };
    const std::map<std::string, std::function<void()>> changes{
        {"remove", [&] { std::filesystem::remove_all(words[1]); }},
        {"write", [&] { folder.write(words[1], words[2]); }},
        {"pipe", [&] { ::mkfifo(words[1].c_str(), 0600); }},
        {"mode", [&] { ::chmod(words[1].c_str(), std::stoi(words[2], nullptr, 8)); }},
        {"damage", damage},
        {"no-app", [&] { lock.reset(); }},
        {"permission", [&] { ShellState(*shell()).setAuthorizationStatus(AuthorizationStatus(number(1))); }},
        {"running", [&] { names->running = twoNames(); }},
        {"startable", [&] { names->startable = twoNames(); }},
        {"no-bus", [&] { names.reset(); }},
        {"failed", [&] { failedCheck = words[1]; }},
        {"older-app", [&] { shell()->removeObject("PushService.State"); }},
        {"select", [&] { setEnvironment("UNIFIEDPUSH_DISTRIBUTOR", words[1]); }},
        {"push", push},
        {"no-token", removeToken},
        {"distributor", [&] { shell()->set(UnifiedPushRegistration::distributorKey, words[1]); }},
        {"replaced", [&] { shell()->set(UnifiedPushRegistration::replacedDistributorKey, words[1]); }},
        {"upload", upload},
        {"no-request", [&] { Network::storeExchanges(*shell(), {}); }},
        {"no-snapshot", [&] { snapshot.reset(); }},
        {"no-device", [&] { snapshot->config.deviceId.reset(); }},
        {"bad-address", [&] { snapshot->config.baseDomain = "a b"; }},
        {"outcome", [&] { storeOutcome(words[1], words[2], words[3], number(4), Date{double(number(5))}); }},
    };
    for (const auto& row : tableRows(diagnoses)) {
        const bool isPolicy = row[0].starts_with('{');
        if (isPolicy)
            folder.write("managed.json", row[0]);
        std::istringstream all(isPolicy ? "" : row[0]);
        for (std::string change; std::getline(all, change, ',');) {
            std::istringstream stream(change);
            words.assign(std::istream_iterator<std::string>(stream), {});
            words.resize(6);
            changes.at(words[0])();
        }
        EXPECT_THAT(examine(row[1]), testing::StartsWith(row[2])) << row[0];
        if (!row[0].empty())
            reset();
    }
}

} // namespace
