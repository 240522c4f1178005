#include "Tests/Trials/DesktopServices.h"
#include "Tests/Trials/Distributor.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <sys/resource.h>

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
    // Without descriptors, it waits to be accepted.
    auto pushed = std::async(std::launch::async, [&] { return testBed.push(); });
    testBed.application().waitForLine("Configuration updated", 1s);
    ::prlimit(process, resource, &before, nullptr);
    testBed.requireHealthy(testBed.requireNothingLost(state, pushed.get()));
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

/// Delivers an encrypted push.
TestBed::Push deliver(Distributor& distributor, const std::string& title)
{
    const auto answer = distributor.deliver(distributor.encrypted(recordedPush(title)));
    return {title, answer == Distributor::Answer::acknowledged ? "ok" : "error"};
}

/// A message arrives while another process locks the history.
void lockedHistory(TestBed& testBed)
{
    Distributor distributor(testBed);
    distributor.registerApplication();
    const char* title = "while locked";
    {
        SQLite::Database database(testBed.device().path("data/quorvane-mdm/com.quorvane.mdm.sqlite"),
                                  SQLite::OPEN_READWRITE);
        const SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        testBed.requireWithLog(!deliver(distributor, title).isAcknowledged(),
                               "a push that could not be stored was not answered with an error");
    }
    const TestBed::Push pushed = deliver(distributor, title);
    testBed.requireWithLog(pushed.isAcknowledged(), "the push is not acknowledged once it can be stored");
    testBed.requireNothingLost({}, pushed);
}

/// An alert arrives while there is neither a window nor a notification server; then the application is
/// killed.
void noPresenter(TestBed& testBed)
{
    Distributor distributor(testBed);
    distributor.registerApplication();
    testBed.end();
    const auto startWithoutWindow = [&] {
        testBed.start({"--push", "auto", "--background"});
        distributor.expectRegistration();
    };
    startWithoutWindow();
    const TestBed::Push pushed = deliver(distributor, "kept");
    testBed.requireWithLog(pushed.isAcknowledged(), "a stored alert is not acknowledged");
    testBed.kill();
    startWithoutWindow();
    DesktopServices desktop;
    testBed.requireWithLog(desktop.waitForNotification() == pushed.title, "the alert was not shown later");
    desktop.tap();
    testBed.expectLine("Processed notification from center");
    testBed.requireNothingLost({}, pushed);
}

/// The distributor restarts while the app runs and while it does not, but the bus can start it.
void distributorRestarts(TestBed& testBed)
{
    Distributor distributor(testBed);
    distributor.setActivatable(true);
    distributor.registerApplication();
    distributor.restart();
    testBed.end();
    distributor.restart();
    testBed.requireWithLog(deliver(distributor, "to the started app").isAcknowledged(),
                           "started by the bus, the application did not acknowledge a push");
    distributor.setActivatable(false);
    distributor.restart();
    const auto ending = testBed.device().startShell(
        "process=$($QVCTL status --json | grep -o '\"processId\": *[0-9]*' | grep -o '[0-9]*$') && "
        "kill $process && tail --pid=$process -f /dev/null");
    require(ending->waitForExit() == 0, "the application did not end");
    testBed.start();
    testBed.expectLine("Configuration manager initialized");
}

/// The distributor, the notification server and the portal run but never reply. Then the bus dies, while the
/// registration is pending.
void busIsSilentAndDies(TestBed& testBed)
{
    testBed.end();
    Distributor distributor(testBed, Distributor::Behavior::silent);
    const auto silent = sdbus::createSessionBusConnection();
    for (const char* name : {"org.freedesktop.Notifications", "org.freedesktop.portal.Desktop"})
        silent->requestName(ServiceName(name));
    constexpr auto timeout = 15s; // Less than the default D-Bus timeout of 25 s.
    testBed.start({"--push", "auto"});
    testBed.expectLine("Configuration manager initialized", timeout);
    distributor.expectRegistration(); // The dashboard has appeared.
    StoredState state = testBed.device().inspect();
    for (const bool isDead : {false, true}) {
        if (isDead) {
            distributor.killBus();
            testBed.expectLine("The connection to the session bus is lost");
        }
        testBed.change();
        testBed.expectLine("Configuration updated", timeout);
        state = testBed.requireNothingLost(state);
    }
}

constexpr std::pair<const char*, void (*)(TestBed&)> disturbances[] = {
    {"the clock jumps by up to 260 years", clockJumps},
    {"another process locks the suite", lockedStore},
    {"another process locks the history", lockedHistory},
    {"notifications cannot be shown", noPresenter},
    {"no descriptors are left", [](TestBed& testBed) { lowerLimit(testBed, RLIMIT_NOFILE, 4); }},
    // By default, the kernel kills a process that exceeds this limit.
    {"files may not grow", [](TestBed& testBed) { lowerLimit(testBed, RLIMIT_FSIZE, 1); }},
    {"the backend dies during an upload", backendDies},
    {"the distributor restarts", distributorRestarts},
    {"the session bus is silent, then dies", busIsSilentAndDies},
};

} // namespace

void disturbanceTrial(const TrialPrograms& programs)
{
    for (const auto& [name, disturb] : disturbances) {
        onTestBed(programs, name, disturb);
        fmt::print("{:<50} passed\n", name);
    }
}
