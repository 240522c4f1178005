#include "Tests/Trials/Distributor.h"
#include "Tests/Trials/Patient.h"
#include "Tests/Trials/Trials.h"
#include "Tools/Backend/PushSender.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <SQLiteCpp/Backup.h>
#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;

void clockJumps(Patient& patient)
{
    constexpr std::int64_t year = 31'557'600;
    StoredState state = patient.demandHealth({});
    for (const std::int64_t offset :
         {20 * year, -40 * year, std::int64_t(-3600), 200 * year, -60 * year, std::int64_t(0)}) {
        patient.faults()->clockOffsetSeconds = offset;
        const StoredState after = patient.demandHealth(state);
        demand(after.configVersion == state.configVersion + 1, "version {} after {}", after.configVersion,
               state.configVersion);
        const double moved = after.snapshot->lastUpdated.secondsSinceReferenceDate -
                             state.snapshot->lastUpdated.secondsSinceReferenceDate;
        demand(std::abs(moved) > 3000, "the clock did not jump for the application");
        state = after;
    }
}

/// As when the machine sleeps: nothing runs, and the time of day goes on.
void stalls(Patient& patient)
{
    StoredState state = patient.demandHealth({});
    for (int round = 1; round <= 3; ++round) {
        patient.application().signal(SIGSTOP);
        patient.change();
        auto push = std::async(std::launch::async, [&] { return patient.push(); });
        std::this_thread::sleep_for(1s);
        patient.faults()->clockOffsetSeconds += 8 * 3600;
        const auto console = patient.device().startConsole({"snapshot", "--json"});
        demand(console->waitForExit() == 0, "the snapshot cannot be read meanwhile");
        patient.application().signal(SIGCONT);
        patient.expectLine("Configuration updated");
        const auto pushed = push.get();
        demand(pushed.isAcknowledged(), "the push that waited was refused: {}", pushed.answer);
        state = patient.demandHealth(patient.demandNothingLost(state, pushed));
    }
}

/// Another process keeps the suite locked for longer than a writer waits.
void lockedStore(Patient& patient)
{
    const StoredState state = patient.demandHealth({});
    {
        SQLite::Database database(patient.device().suiteFile(), SQLite::OPEN_READWRITE);
        const SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        patient.change();
        patient.expectLine("database is locked");
    }
    patient.expectLine("Configuration updated");
    patient.demandHealth(patient.demandNothingLost(state));
}

/// The folder of the state goes while the application runs.
void lostStores(Patient& patient)
{
    patient.demandHealth({});
    std::filesystem::remove_all(patient.device().path("data"));
    const auto console = patient.device().startConsole({"privacy", "grant", "notifications"});
    demand(console->waitForExit() == 0, "the user cannot allow notifications again");
    patient.demandHealth({});
}

/// A backup of every store is copied over the open one, and the logs are removed.
void restoredBackup(Patient& patient)
{
    namespace fs = std::filesystem;
    const StoredState state = patient.demandHealth({});
    const fs::path folder = patient.device().path("data/quorvane-mdm");
    std::vector<fs::path> stores;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".sqlite")
            stores.push_back(entry.path());
    }
    const auto backupOf = [&](const fs::path& store) {
        return patient.device().path(store.filename().string());
    };
    for (const fs::path& store : stores) {
        SQLite::Database backup(backupOf(store).string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        fs::permissions(backupOf(store), fs::perms::owner_read | fs::perms::owner_write);
        SQLite::Database original(store.string(), SQLite::OPEN_READONLY);
        SQLite::Backup(backup, original).executeStep(-1);
    }
    patient.demandHealth(state);
    for (const fs::path& store : stores) {
        const std::string name = store.string();
        fs::copy_file(backupOf(store), store, fs::copy_options::overwrite_existing);
        fs::remove(name + "-wal");
        fs::remove(name + "-shm");
    }
    const StoredState after = patient.demandHealth(state);
    demand(after.configVersion == state.configVersion + 1, "version {} after a backup of version {}",
           after.configVersion, state.configVersion);
}

void fewDescriptors(Patient& patient)
{
    const StoredState state = patient.demandHealth({});
    const pid_t process = patient.application().processId();
    rlimit before{};
    const rlimit none{4, 1'000'000};
    ::prlimit(process, RLIMIT_NOFILE, nullptr, &before);
    const rlimit few{none.rlim_cur, before.rlim_max};
    ::prlimit(process, RLIMIT_NOFILE, &few, nullptr);
    patient.change();
    patient.application().waitForLine("Configuration updated", 1s);
    ::prlimit(process, RLIMIT_NOFILE, &before, nullptr);
    patient.demandHealth(patient.demandNothingLost(state));
}

/// Files may not grow: the system would end the process by a signal.
void limitedFileSize(Patient& patient)
{
    const StoredState state = patient.demandHealth({});
    const pid_t process = patient.application().processId();
    rlimit before{};
    ::prlimit(process, RLIMIT_FSIZE, nullptr, &before);
    const rlimit small{1, before.rlim_max};
    ::prlimit(process, RLIMIT_FSIZE, &small, nullptr);
    patient.change();
    const auto pushed = patient.push();
    patient.application().waitForLine("Configuration updated", 1s);
    ::prlimit(process, RLIMIT_FSIZE, &before, nullptr);
    patient.demandHealth(patient.demandNothingLost(state, pushed));
}

/// Uploads are under way when the backend goes, and when the application is told to end.
void backendDies(Patient& patient)
{
    const StoredState state = patient.demandHealth({});
    for (const bool isBackendFirst : {false, true}) {
        patient.end();
        patient.backend().setReply("*", {.delay = 60s});
        patient.backend().takeRequests();
        patient.start();
        patient.expectLine("Remote notifications registered");
        while (patient.backend().takeRequests().empty())
            std::this_thread::sleep_for(1ms);
        if (isBackendFirst) {
            patient.endBackend();
            patient.expectLine("Device token upload failed");
            patient.demandHealth(state);
        }
    }
}

/// A notification server that shows everything, and remembers the first.
class NotificationServerDouble {
public:
    NotificationServerDouble()
    {
        const auto add = [this](const char* method, auto work) {
            m_object->registerMethod(method).onInterface(name).implementedAs(std::move(work));
        };
        add("GetCapabilities", [] { return std::vector<std::string>{"actions", "body"}; });
        add("Notify", [this](const std::string&, std::uint32_t, const std::string&,
                             const std::string& summary, const std::string&, const std::vector<std::string>&,
                             const std::map<std::string, sdbus::Variant>&, std::int32_t) {
            m_shown.set_value(summary);
            return notificationId;
        });
        m_object->finishRegistration();
        m_bus->requestName(name);
        m_bus->enterEventLoopAsync();
    }
    ~NotificationServerDouble() { m_bus->leaveEventLoop(); }

    /// Its summary; empty when none comes.
    std::string waitForNotification()
    {
        auto shown = m_shown.get_future();
        return shown.wait_for(20s) == std::future_status::ready ? shown.get() : std::string();
    }
    void tap() const
    {
        m_object->emitSignal("ActionInvoked")
            .onInterface(name)
            .withArguments(notificationId, std::string("default"));
    }

private:
    static constexpr const char* name = "org.freedesktop.Notifications";
    static constexpr std::uint32_t notificationId = 1;

    std::promise<std::string> m_shown;
    std::unique_ptr<sdbus::IConnection> m_bus = sdbus::createSessionBusConnection();
    std::unique_ptr<sdbus::IObject> m_object = sdbus::createObject(*m_bus, "/org/freedesktop/Notifications");
};

/// A push over the session bus, and what must become of it.
struct EncryptedPush {
    /// Has the application register with `distributor`.
    EncryptedPush(Distributor& theDistributor, Patient& patient, const std::string& title)
        : distributor(theDistributor), push{title, "ok"}
    {
        patient.end();
        patient.backend().takeRequests();
        patient.start("auto");
        patient.demandHere(distributor.waitForRegistration(), "the distributor was not asked");
        distributor.sendEndpoint("https://push.example.org/1");
        patient.expectLine("Device token uploaded");
        const auto token = uploadedToken(patient.backend().takeRequests().back());
        message = encryptWebPush(WebPushSubscription::parse(subscriptionText(token.value())),
                                 fmt::format(R"({{"aps": {{"alert": "{}"}}}})", title));
        before = patient.device().inspect();
    }
    [[nodiscard]] bool isAnswered(Distributor::Answer answer) const
    {
        return distributor.deliver(message) == answer;
    }

    Distributor& distributor;
    Patient::Push push;
    std::string message;
    StoredState before;
};

/// A message arrives while another process keeps the history locked.
void lockedHistory(Patient& patient)
{
    using enum Distributor::Answer;
    Distributor distributor(patient.device(), Distributor::Manner::prompt);
    const EncryptedPush sent(distributor, patient, "while locked");
    {
        SQLite::Database database(patient.device().path("data/quorvane-mdm/com.quorvane.mdm.sqlite"),
                                  SQLite::OPEN_READWRITE);
        const SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        patient.demandHere(sent.isAnswered(error), "what could not be stored was not answered with an error");
    }
    patient.demandHere(sent.isAnswered(acknowledged), "it is not acknowledged once it can be stored");
    patient.demandNothingLost(sent.before, sent.push);
}

/// An alert arrives without a window or a notification server, and the application is killed.
void nothingShowsNotifications(Patient& patient)
{
    Distributor distributor(patient.device(), Distributor::Manner::prompt);
    const EncryptedPush sent(distributor, patient, "kept");
    patient.end();
    patient.startWithoutWindow();
    patient.demandHere(distributor.waitForRegistration(), "it did not register without a window");
    patient.demandHere(sent.isAnswered(Distributor::Answer::acknowledged),
                       "an alert that is kept is not acknowledged");
    patient.application().signal(SIGKILL);
    patient.application().waitForExit();
    patient.startWithoutWindow();
    patient.demandHere(distributor.waitForRegistration(), "it did not register without a window");
    NotificationServerDouble server;
    patient.demandHere(server.waitForNotification() == sent.push.title, "it was not shown later");
    server.tap();
    patient.expectLine("Processed notification from center");
    patient.demandNothingLost(sent.before, sent.push);
}

/// The session bus goes while a registration waits for its answer.
void busDies(Patient& patient)
{
    patient.end();
    Distributor distributor(patient.device(), Distributor::Manner::silent);
    patient.start("auto");
    const bool isAsked = distributor.waitForRegistration();
    patient.demandHere(isAsked, "the distributor was not asked");
    const StoredState state = patient.device().inspect();
    distributor.killBus();
    patient.change();
    patient.expectLine("Configuration updated");
    patient.demandNothingLost(state);
}

/// Notification server and portal are there, and never say a word.
void busIsMute(Patient& patient)
{
    patient.end();
    Distributor distributor(patient.device(), Distributor::Manner::silent);
    const auto mute = sdbus::createSessionBusConnection();
    for (const char* name : {"org.freedesktop.Notifications", "org.freedesktop.portal.Desktop"})
        mute->requestName(name);
    constexpr auto before = 15s; // The bus would give up on an answer after 25.
    patient.start("auto");
    patient.expectLine("Configuration manager initialized", before);
    demand(distributor.waitForRegistration(), "the dashboard did not come up");
    const StoredState state = patient.device().inspect();
    patient.change();
    patient.expectLine("Configuration updated", before);
    patient.demandNothingLost(state);
}

struct Disturbance {
    const char* name;
    void (*play)(Patient&);
};

constexpr Disturbance disturbances[] = {
    {"the clock jumps by up to 260 years", clockJumps},
    {"the machine sleeps", stalls},
    {"another process keeps the suite locked", lockedStore},
    {"another process keeps the history locked", lockedHistory},
    {"nothing shows notifications", nothingShowsNotifications},
    {"the state is removed", lostStores},
    {"a backup replaces the stores", restoredBackup},
    {"no descriptor is left", fewDescriptors},
    {"files may not grow", limitedFileSize},
    {"the backend dies in the middle of an upload", backendDies},
    {"the session bus dies in the middle of a call", busDies},
    {"nobody on the session bus answers", busIsMute},
};

} // namespace

void disturbanceTrial(const TrialPrograms& programs)
{
    for (const Disturbance& disturbance : disturbances) {
        Patient patient(programs);
        try {
            disturbance.play(patient);
            patient.end();
        } catch (const Violation& violation) {
            throw Violation(fmt::format("{}: {}", disturbance.name, violation.what()));
        }
        fmt::print("{:<50} survived\n", disturbance.name);
    }
}
