#include "Tests/Trials/DesktopServices.h"
#include "Tests/Trials/RegisteredApplication.h"
#include "Tests/Trials/TestBed.h"
#include "Tests/Trials/Trials.h"

#include <SQLiteCpp/Backup.h>
#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;

void clockJumps(TestBed& testBed)
{
    constexpr std::int64_t year = 31'557'600;
    StoredState state = testBed.requireHealthy({});
    for (const std::int64_t offset :
         {20 * year, -40 * year, std::int64_t(-3600), 200 * year, -60 * year, std::int64_t(0)}) {
        testBed.faults()->clockOffsetSeconds = offset;
        const StoredState after = testBed.requireHealthy(state);
        require(after.configVersion == state.configVersion + 1, "version {} after {}", after.configVersion,
                state.configVersion);
        const double moved = after.snapshot->lastUpdated.secondsSinceReferenceDate -
                             state.snapshot->lastUpdated.secondsSinceReferenceDate;
        require(std::abs(moved) > 3000, "the application did not see the clock jump");
        state = after;
    }
}

/// Simulates suspend: the application stops while the time of day advances.
void stalls(TestBed& testBed)
{
    StoredState state = testBed.requireHealthy({});
    for (int round = 1; round <= 3; ++round) {
        testBed.application().signal(SIGSTOP);
        testBed.change();
        auto push = std::async(std::launch::async, [&] { return testBed.push(); });
        std::this_thread::sleep_for(1s);
        testBed.faults()->clockOffsetSeconds += 8 * 3600;
        const auto console = testBed.device().startConsole({"snapshot", "--json"});
        require(console->waitForExit() == 0, "the snapshot cannot be read during suspend");
        testBed.application().signal(SIGCONT);
        testBed.expectLine("Configuration updated");
        const auto pushed = push.get();
        require(pushed.isAcknowledged(), "the pending push was refused: {}", pushed.answer);
        state = testBed.requireHealthy(testBed.requireNothingLost(state, pushed));
    }
}

/// Another process locks the suite for longer than a writer's timeout.
void lockedStore(TestBed& testBed)
{
    const StoredState state = testBed.requireHealthy({});
    {
        SQLite::Database database(testBed.device().suiteFile(), SQLite::OPEN_READWRITE);
        const SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        testBed.change();
        testBed.expectLine("database is locked");
    }
    testBed.expectLine("Configuration updated");
    testBed.requireHealthy(testBed.requireNothingLost(state));
}

/// The state folder is removed while the application runs.
void lostStores(TestBed& testBed)
{
    testBed.requireHealthy({});
    std::filesystem::remove_all(testBed.device().path("data"));
    const auto console = testBed.device().startConsole({"privacy", "grant", "notifications"});
    require(console->waitForExit() == 0, "notifications cannot be allowed again");
    testBed.requireHealthy({});
}

/// A backup is copied over every open store, and the write-ahead logs are removed.
void restoredBackup(TestBed& testBed)
{
    namespace fs = std::filesystem;
    const StoredState state = testBed.requireHealthy({});
    const fs::path folder = testBed.device().path("data/quorvane-mdm");
    std::vector<fs::path> stores;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".sqlite")
            stores.push_back(entry.path());
    }
    const auto backupOf = [&](const fs::path& store) {
        return testBed.device().path(store.filename().string());
    };
    for (const fs::path& store : stores) {
        SQLite::Database backup(backupOf(store), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        fs::permissions(backupOf(store), fs::perms::owner_read | fs::perms::owner_write);
        SQLite::Database original(store, SQLite::OPEN_READONLY);
        SQLite::Backup(backup, original).executeStep(-1);
    }
    testBed.requireHealthy(state);
    for (const fs::path& store : stores) {
        fs::copy_file(backupOf(store), store, fs::copy_options::overwrite_existing);
        for (const char* ending : {"-wal", "-shm"})
            fs::remove(store.string() + ending);
    }
    const StoredState after = testBed.requireHealthy(state);
    require(after.configVersion == state.configVersion + 1, "version {} after a backup of version {}",
            after.configVersion, state.configVersion);
}

/// Lowers a resource limit of the application for a while.
void lowerLimit(TestBed& testBed, decltype(RLIMIT_FSIZE) resource, rlim_t limit)
{
    const StoredState state = testBed.requireHealthy({});
    const pid_t process = testBed.application().processId();
    rlimit before{};
    ::prlimit(process, resource, nullptr, &before);
    const rlimit low{limit, before.rlim_max};
    ::prlimit(process, resource, &low, nullptr);
    testBed.change();
    // Without descriptors, no push reaches the application.
    const auto pushed = resource == RLIMIT_NOFILE ? TestBed::Push() : testBed.push();
    testBed.application().waitForLine("Configuration updated", 1s);
    ::prlimit(process, resource, &before, nullptr);
    testBed.requireHealthy(testBed.requireNothingLost(state, pushed));
}

void fewDescriptors(TestBed& testBed)
{
    lowerLimit(testBed, RLIMIT_NOFILE, 4);
}

/// By default, the kernel kills a process that exceeds this limit.
void limitedFileSize(TestBed& testBed)
{
    lowerLimit(testBed, RLIMIT_FSIZE, 1);
}

/// An upload is pending when the backend dies, and when the application receives SIGTERM.
void backendDies(TestBed& testBed)
{
    const StoredState state = testBed.requireHealthy({});
    for (const bool isBackendFirst : {false, true}) {
        testBed.end();
        testBed.backend().setReply("*", {.delay = 60s});
        testBed.backend().takeRequests();
        testBed.start();
        testBed.expectLine("Remote notifications registered");
        while (testBed.backend().takeRequests().empty())
            std::this_thread::sleep_for(1ms);
        if (isBackendFirst) {
            testBed.endBackend();
            testBed.expectLine("Device token upload failed");
            testBed.requireHealthy(state);
        }
    }
}

/// An encrypted push to be delivered over the session bus.
struct EncryptedPush {
    /// Restarts the application, which registers with `distributor`.
    EncryptedPush(Distributor& theDistributor, TestBed& testBed, const std::string& title)
        : distributor(theDistributor), push{title, "ok"}
    {
        testBed.end();
        testBed.backend().takeRequests();
        testBed.start("auto");
        testBed.requireWithLog(distributor.waitForRegistration(), "the application did not register");
        distributor.sendEndpoint("https://push.example.org/1");
        testBed.expectLine("Device token uploaded");
        message = encryptWebPush(uploadedSubscription(testBed.backend()), recordedPush(title));
        before = testBed.device().inspect();
    }
    [[nodiscard]] bool isAnswered(Distributor::Answer answer) const
    {
        return distributor.deliver(message) == answer;
    }

    Distributor& distributor;
    TestBed::Push push;
    std::string message;
    StoredState before;
};

/// A message arrives while another process locks the history.
void lockedHistory(TestBed& testBed)
{
    using enum Distributor::Answer;
    Distributor distributor(testBed.device(), Distributor::Behavior::responsive);
    const EncryptedPush sent(distributor, testBed, "while locked");
    {
        SQLite::Database database(testBed.device().path("data/quorvane-mdm/com.quorvane.mdm.sqlite"),
                                  SQLite::OPEN_READWRITE);
        const SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        testBed.requireWithLog(sent.isAnswered(error),
                               "a push that could not be stored was not answered with an error");
    }
    testBed.requireWithLog(sent.isAnswered(acknowledged),
                           "the push is not acknowledged once it can be stored");
    testBed.requireNothingLost(sent.before, sent.push);
}

/// An alert arrives while there is neither a window nor a notification server; then the application is
/// killed.
void noPresenter(TestBed& testBed)
{
    Distributor distributor(testBed.device(), Distributor::Behavior::responsive);
    const EncryptedPush sent(distributor, testBed, "kept");
    const auto startWithoutWindow = [&] {
        testBed.startWithoutWindow();
        testBed.requireWithLog(distributor.waitForRegistration(),
                               "the application did not register without a window");
    };
    testBed.end();
    startWithoutWindow();
    testBed.requireWithLog(sent.isAnswered(Distributor::Answer::acknowledged),
                           "a stored alert is not acknowledged");
    testBed.application().signal(SIGKILL);
    testBed.application().waitForExit();
    startWithoutWindow();
    DesktopServices desktop;
    testBed.requireWithLog(desktop.waitForNotification() == sent.push.title, "the alert was not shown later");
    desktop.tap();
    testBed.expectLine("Processed notification from center");
    testBed.requireNothingLost(sent.before, sent.push);
}

/// The distributor restarts, with the same endpoint and with others, while the app runs and while it does
/// not.
void distributorRestarts(TestBed& testBed)
{
    Distributor distributor(testBed.device(), Distributor::Behavior::responsive);
    distributor.installService(testBed.programs());
    const EncryptedPush sent(distributor, testBed, "after restarts");
    const std::string first = "https://push.example.org/1";
    const std::string second = "https://push.example.org/2";
    const std::string third = "https://push.example.org/3";
    const auto requireRegistration = [&] {
        testBed.requireWithLog(distributor.waitForRegistration(), "the application did not register again");
    };
    const auto restart = [&](const std::string& endpoint) {
        testBed.requireWithLog(distributor.restart(endpoint), "the app cannot be started by the bus");
    };
    const auto requireUploaded = [&](const std::string& endpoint) {
        testBed.requireWithLog(uploadedSubscription(testBed.backend()).endpoint == endpoint,
                               "the uploaded token is not for " + endpoint);
    };
    const auto requireUploadedByActivated = [&](const std::string& endpoint) {
        testBed.requireWithLog(distributor.waitForActivatedLine("Device token uploaded"),
                               "started by the bus, the application did not upload " + endpoint);
        requireUploaded(endpoint);
    };
    restart(first);
    requireRegistration();
    restart(second);
    requireRegistration();
    testBed.expectLine("Device token uploaded");
    requireUploaded(second);

    testBed.end();
    restart(third);
    requireUploadedByActivated(third);
    testBed.requireWithLog(sent.isAnswered(Distributor::Answer::acknowledged),
                           "started by the bus, the application did not acknowledge a push");
    requireRegistration();

    distributor.removeService();
    testBed.requireWithLog(!distributor.restart(first),
                           "the stand-in knows an app that the bus cannot start");
    requireRegistration();
    distributor.sendEndpoint(first);
    requireUploadedByActivated(first);
    testBed.requireWithLog(distributor.endActivated(), "the application did not end");
    testBed.start();
    testBed.expectLine("Configuration manager initialized");
}

/// The session bus dies while a registration is pending.
void busDies(TestBed& testBed)
{
    testBed.end();
    Distributor distributor(testBed.device(), Distributor::Behavior::silent);
    testBed.start("auto");
    testBed.requireWithLog(distributor.waitForRegistration(), "the application did not register");
    const StoredState state = testBed.device().inspect();
    distributor.killBus();
    testBed.change();
    testBed.expectLine("Configuration updated");
    testBed.requireNothingLost(state);
}

/// The notification server and the portal run but never reply.
void busIsSilent(TestBed& testBed)
{
    testBed.end();
    Distributor distributor(testBed.device(), Distributor::Behavior::silent);
    const auto silent = sdbus::createSessionBusConnection();
    for (const char* name : {"org.freedesktop.Notifications", "org.freedesktop.portal.Desktop"})
        silent->requestName(ServiceName(name));
    constexpr auto timeout = 15s; // Less than the default D-Bus timeout of 25 s.
    testBed.start("auto");
    testBed.expectLine("Configuration manager initialized", timeout);
    require(distributor.waitForRegistration(), "the dashboard did not appear");
    const StoredState state = testBed.device().inspect();
    testBed.change();
    testBed.expectLine("Configuration updated", timeout);
    testBed.requireNothingLost(state);
}

struct Disturbance {
    const char* name;
    void (*run)(TestBed&);
};

constexpr Disturbance disturbances[] = {
    {"the clock jumps by up to 260 years", clockJumps},
    {"the machine sleeps", stalls},
    {"another process locks the suite", lockedStore},
    {"another process locks the history", lockedHistory},
    {"notifications cannot be shown", noPresenter},
    {"the state folder is removed", lostStores},
    {"a backup replaces the stores", restoredBackup},
    {"no descriptors are left", fewDescriptors},
    {"files may not grow", limitedFileSize},
    {"the backend dies during an upload", backendDies},
    {"the distributor restarts", distributorRestarts},
    {"the session bus dies during a call", busDies},
    {"no service on the session bus replies", busIsSilent},
};

} // namespace

void disturbanceTrial(const TrialPrograms& programs)
{
    for (const Disturbance& disturbance : disturbances) {
        TestBed testBed(programs);
        try {
            disturbance.run(testBed);
            testBed.end();
        } catch (const Violation& violation) {
            throw Violation(fmt::format("{}: {}", disturbance.name, violation.what()));
        }
        fmt::print("{:<50} passed\n", disturbance.name);
    }
}
