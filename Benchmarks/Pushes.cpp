#include "Benchmarks/BareStores.h"
#include "Benchmarks/Figures.h"
#include "Platform/Push/WebPush.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/RegisteredApplication.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr std::size_t burstCount = 3'000;

/// The app and pushes for it.
class Application {
public:
    [[nodiscard]] std::string nextMessage()
    {
        return m_application.encrypted(recordedPush(fmt::format("push {}", ++m_count)));
    }
    void deliver(const std::string& message) { m_application.deliver(message); }
    /// Sends pushes without waiting, and returns when the first was acknowledged.
    void startBurst()
    {
        std::vector<std::string> messages;
        for (std::size_t number = 0; number < burstCount; ++number)
            messages.push_back(nextMessage());
        for (const std::string& message : messages) {
            m_application.distributor().send(message, 10s, [this](Distributor::Answer answer) {
                m_isAnyAcknowledged = m_isAnyAcknowledged || answer == Distributor::Answer::acknowledged;
            });
        }
        while (!m_isAnyAcknowledged)
            std::this_thread::sleep_for(1ms);
    }
    void end() { m_application.end(); }

private:
    std::size_t m_count = 0;
    std::atomic<bool> m_isAnyAcknowledged = false;
    RegisteredApplication m_application{QV_PROGRAMS}; // Destroyed first: its bus thread sets the flag.
};

/// A service on a session bus that decrypts each message, stores it as one row and replies.
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
        addMethod(*m_object, interface, "Message", [this](const std::vector<std::uint8_t>& message) {
            const std::string text = m_keys.decrypt(std::string(message.begin(), message.end()));
            m_database.write(BareDatabase::snapshotKey, text);
            return std::string("done");
        });
        publishMethods(*m_object);
        m_server->enterEventLoopAsync();
    }
    ~BareReceiver() { m_server->leaveEventLoop(); }
    BareReceiver(const BareReceiver&) = delete;
    BareReceiver& operator=(const BareReceiver&) = delete;

    [[nodiscard]] std::string nextMessage()
    {
        return encryptWebPush(m_subscription, recordedPush(fmt::format("push {}", ++m_count)));
    }
    void deliver(const std::string& message)
    {
        std::string reply;
        m_proxy->callMethod("Message")
            .onInterface(interface)
            .withArguments(std::vector<std::uint8_t>(message.begin(), message.end()))
            .storeResultsTo(reply);
    }

private:
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
