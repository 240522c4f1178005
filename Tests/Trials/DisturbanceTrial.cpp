#include "Tests/Trials/DesktopServices.h"
#include "Tests/Trials/RegisteredApplication.h"
#include "Tests/Trials/TestBed.h"
#include "Tests/Trials/Trials.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>

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
    // Without descriptors, no push reaches the application.
    const auto pushed = resource == RLIMIT_NOFILE ? TestBed::Push() : testBed.push();
    testBed.application().waitForLine("Configuration updated", 1s);
    ::prlimit(process, resource, &before, nullptr);
    testBed.requireHealthy(testBed.requireNothingLost(state, pushed));
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
    const auto endpoint = [](int number) { return fmt::format("https://push.example.org/{}", number); };
    const auto requireRegistration = [&] {
        testBed.requireWithLog(distributor.waitForRegistration(), "the application did not register again");
    };
    const auto restart = [&](int number) {
        testBed.requireWithLog(distributor.restart(endpoint(number)), "the app cannot be started by the bus");
    };
    const auto requireUploaded = [&](int number) {
        testBed.requireWithLog(uploadedSubscription(testBed.backend()).endpoint == endpoint(number),
                               "the uploaded token is not for " + endpoint(number));
    };
    const auto requireUploadedByActivated = [&](int number) {
        testBed.requireWithLog(distributor.waitForActivatedLine("Device token uploaded"),
                               "started by the bus, the application did not upload its token");
        requireUploaded(number);
    };
    restart(1);
    requireRegistration();
    restart(2);
    requireRegistration();
    testBed.expectLine("Device token uploaded");
    requireUploaded(2);

    testBed.end();
    restart(3);
    requireUploadedByActivated(3);
    testBed.requireWithLog(sent.isAnswered(Distributor::Answer::acknowledged),
                           "started by the bus, the application did not acknowledge a push");
    requireRegistration();

    distributor.removeService();
    testBed.requireWithLog(!distributor.restart(endpoint(1)),
                           "the stand-in knows an app that the bus cannot start");
    requireRegistration();
    distributor.sendEndpoint(endpoint(1));
    requireUploadedByActivated(1);
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
    {"another process locks the suite", lockedStore},
    {"another process locks the history", lockedHistory},
    {"notifications cannot be shown", noPresenter},
    {"no descriptors are left", [](TestBed& testBed) { lowerLimit(testBed, RLIMIT_NOFILE, 4); }},
    // By default, the kernel kills a process that exceeds this limit.
    {"files may not grow", [](TestBed& testBed) { lowerLimit(testBed, RLIMIT_FSIZE, 1); }},
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
