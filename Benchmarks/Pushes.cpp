#include "Benchmarks/BareStores.h"
#include "Benchmarks/Figures.h"
#include "Platform/Push/WebPush.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/Distributor.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr std::size_t burstCount = 3'000;

/// A push with an alert. While the window is open, it is in the history before it is acknowledged.
std::string alert(std::size_t number)
{
    return fmt::format(R"({{"aps": {{"alert": {{"title": "push {}"}}}}}})", number);
}

/// A notification server that shows nothing, on the bus of the last `Distributor`.
class NotificationServer {
public:
    NotificationServer()
    {
        addMethod(*m_object, name, "GetCapabilities", [] { return std::vector<std::string>{"body"}; });
        addMethod(*m_object, name, "Notify",
                  [this](const std::string&, std::uint32_t, const std::string&, const std::string&,
                         const std::string&, const std::vector<std::string>&,
                         const std::map<std::string, sdbus::Variant>&, std::int32_t) { return ++m_count; });
        publishMethods(*m_object);
        takeName(*m_bus, name);
        m_bus->enterEventLoopAsync();
    }
    ~NotificationServer() { m_bus->leaveEventLoop(); }
    NotificationServer(const NotificationServer&) = delete;
    NotificationServer& operator=(const NotificationServer&) = delete;

private:
    static constexpr const char* name = "org.freedesktop.Notifications";

    std::uint32_t m_count = 0;
    std::unique_ptr<sdbus::IConnection> m_bus = sdbus::createSessionBusConnection();
    std::unique_ptr<sdbus::IObject> m_object =
        sdbus::createObject(*m_bus, ObjectPath("/org/freedesktop/Notifications"));
};

/// The app and pushes for it.
class Application {
public:
    Application() { m_distributor.registerApplication(); }
    [[nodiscard]] std::string nextMessage() { return m_distributor.encrypted(alert(++m_count)); }
    void deliver(const std::string& message)
    {
        require(m_distributor.deliver(message) == Distributor::Answer::acknowledged,
                "a push was not acknowledged");
    }
    /// Sends pushes without waiting, and returns when the first was acknowledged.
    void startBurst()
    {
        std::vector<std::string> messages;
        for (std::size_t number = 0; number < burstCount; ++number)
            messages.push_back(nextMessage());
        for (const std::string& message : messages) {
            m_distributor.send(message, 10s, [this](Distributor::Answer answer) {
                m_isAnyAcknowledged = m_isAnyAcknowledged || answer == Distributor::Answer::acknowledged;
            });
        }
        while (!m_isAnyAcknowledged)
            std::this_thread::sleep_for(1ms);
    }
    void end() { m_testBed.end(); }

private:
    std::size_t m_count = 0;
    std::atomic<bool> m_isAnyAcknowledged = false;
    TestBed m_testBed{{QV_PROGRAMS, {}}};
    Distributor m_distributor{m_testBed}; // Destroyed before the flag, which its bus thread sets.
    NotificationServer m_notificationServer;
};

/// A service on a session bus that decrypts each message, stores it as one row and replies. Calls and replies
/// have the form of UnifiedPush, and the caller has an event loop, as a distributor does.
class BareReceiver {
public:
    BareReceiver()
    {
        require(m_daemon.waitForLine("unix:"), "cannot start a session bus");
        m_server = sdbus::createSessionBusConnectionWithAddress(address());
        m_client = sdbus::createSessionBusConnectionWithAddress(address());
        m_object = sdbus::createObject(*m_server, ObjectPath("/receiver"));
        m_proxy = sdbus::createProxy(*m_client, ServiceName(std::string(m_server->getUniqueName())),
                                     ObjectPath("/receiver"));
        addMethod(*m_object, interface, "Message", [this](const Dictionary& arguments) {
            const auto message = arguments.at("message").get<Bytes>();
            const std::string text = m_keys.decrypt(std::string(message.begin(), message.end()));
            m_database.write(BareDatabase::snapshotKey, text);
            return Dictionary{{"id", arguments.at("id")}};
        });
        publishMethods(*m_object);
        m_server->enterEventLoopAsync();
        m_client->enterEventLoopAsync();
    }
    ~BareReceiver()
    {
        m_client->leaveEventLoop();
        m_server->leaveEventLoop();
    }
    BareReceiver(const BareReceiver&) = delete;
    BareReceiver& operator=(const BareReceiver&) = delete;

    [[nodiscard]] std::string nextMessage() { return encryptWebPush(m_subscription, alert(++m_count)); }
    void deliver(const std::string& message)
    {
        const Dictionary arguments{{"token", sdbus::Variant(std::string("token"))},
                                   {"message", sdbus::Variant(Bytes(message.begin(), message.end()))},
                                   {"id", sdbus::Variant(std::to_string(m_count))}};
        Dictionary reply;
        m_proxy->callMethod("Message").onInterface(interface).withArguments(arguments).storeResultsTo(reply);
    }

private:
    using Bytes = std::vector<std::uint8_t>;
    using Dictionary = std::map<std::string, sdbus::Variant>;

    static constexpr const char* interface = "org.example.Receiver";

    [[nodiscard]] std::string address() const { return "unix:path=" + m_folder.path("bus").string(); }

    const TemporaryFolder m_folder;
    ChildProcess m_daemon{
        {"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address", "--address=" + address()},
        {}};
    const Platform::Push::WebPushKeys m_keys = Platform::Push::WebPushKeys::generate();
    const WebPushSubscription m_subscription =
        WebPushSubscription::parse(Platform::Push::webPushSubscription("https://push.example.org/1", m_keys));
    BareDatabase m_database{m_folder.path("bare.sqlite")};
    std::unique_ptr<sdbus::IConnection> m_server;
    std::unique_ptr<sdbus::IConnection> m_client;
    std::unique_ptr<sdbus::IObject> m_object;
    std::unique_ptr<sdbus::IProxy> m_proxy;
    std::size_t m_count = 0;
};

template <typename Receiver>
void measureDelivery(benchmark::State& state)
{
    Receiver receiver;
    receiver.deliver(receiver.nextMessage());
    for (auto _ : state) {
        const std::string message = receiver.nextMessage();
        Figure::setTimeOf(state, [&] { receiver.deliver(message); });
    }
}

void exitInBurst(benchmark::State& state)
{
    for (auto _ : state) {
        Application application;
        application.startBurst();
        Figure::setTimeOf(state, [&] { application.end(); });
    }
}

void exitOfBareLoop(benchmark::State& state)
{
    for (auto _ : state) {
        ChildProcess process({QV_BARE_LOOP}, {{"QT_QPA_PLATFORM", "offscreen"}});
        if (!process.waitForLine("waiting"))
            state.SkipWithError("the bare event loop did not start");
        Figure::setTimeOf(state, [&] { process.end(); });
    }
}

} // namespace

std::vector<Figure> pushFigures()
{
    constexpr std::int64_t pushesPerRepetition = 50;
    constexpr double exitAllowanceNanoseconds = 200e6;
    return {
        {"encrypted push over D-Bus, acknowledged",
         Figure::catching(measureDelivery<Application>),
         {{"echo, decryption, one row", Figure::catching(measureDelivery<BareReceiver>), {.ratio = 1.5}}},
         Figure::Clock::manual,
         pushesPerRepetition},
        {"SIGTERM to exit in a burst of 3000 pushes",
         Figure::catching(exitInBurst),
         {{"bare event loop", exitOfBareLoop, {.excess = exitAllowanceNanoseconds}}},
         Figure::Clock::manual,
         1,
         Figure::Quantity::duration,
         3},
    };
}
