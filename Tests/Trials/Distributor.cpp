#include "Tests/Trials/Distributor.h"

#include "Platform/Linux/DevicePaths.h"

#include <boost/algorithm/hex.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

namespace {

const std::string application(Platform::Linux::applicationIdentifier);

std::string addressOn(const ThrowawayDevice& device)
{
    return "unix:path=" + device.path("run/bus").string();
}

/// Programs that the bus starts have this environment, too.
ChildProcess::Environment environmentOf(const ThrowawayDevice& device)
{
    ChildProcess::Environment environment = device.environment();
    environment["LD_PRELOAD"] = "";
    return environment;
}

std::unique_ptr<sdbus::IProxy> busProxy(sdbus::IConnection& connection)
{
    return sdbus::createProxy(connection, ServiceName("org.freedesktop.DBus"),
                              ObjectPath("/org/freedesktop/DBus"));
}

} // namespace

Distributor::Distributor(TestBed& testBed, Behavior behavior)
    : m_testBed(testBed),
      m_behavior(behavior),
      m_daemon({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address",
                "--address=" + addressOn(testBed.device())},
               environmentOf(testBed.device()))
{
    if (!m_daemon.waitForLine("unix:"))
        throw std::runtime_error("cannot start a session bus");
    ::setenv("DBUS_SESSION_BUS_ADDRESS", addressOn(testBed.device()).c_str(), 1);
    connect();
}

void Distributor::connect()
{
    m_bus = sdbus::createSessionBusConnection(BusName("org.unifiedpush.Distributor.Trial"));
    m_connector =
        sdbus::createProxy(*m_bus, ServiceName(application), ObjectPath("/org/unifiedpush/Connector"));
    m_object = sdbus::createObject(*m_bus, ObjectPath("/org/unifiedpush/Distributor"));
    addMethod(
        *m_object, "org.unifiedpush.Distributor2", "Register",
        [this](sdbus::Result<Dictionary>&& result, const Dictionary& arguments) {
            if (m_behavior == Behavior::responsive)
                result.returnResults({{"success", sdbus::Variant(std::string("REGISTRATION_SUCCEEDED"))}});
            else
                m_answer = std::move(result);
            if (m_token.empty())
                m_token = arguments.at("token").get<std::string>();
            m_registrations.release();
        });
    publishMethods(*m_object);
    m_bus->enterEventLoopAsync();
}

Distributor::~Distributor()
{
    m_bus->leaveEventLoop();
}

void Distributor::registerApplication()
{
    m_testBed.end();
    m_testBed.backend().takeRequests();
    m_testBed.start({"--push", "auto"});
    expectRegistration();
    renewEndpoint();
}

void Distributor::expectRegistration()
{
    m_testBed.requireWithLog(m_registrations.try_acquire_for(20s), "the application did not register");
}

void Distributor::renewEndpoint()
{
    sendEndpoint();
    expectUpload();
}

void Distributor::sendEndpoint()
{
    m_endpoint = fmt::format("https://push.example.org/{}", ++m_endpointCount);
    m_connector->callMethod(makeCall("NewEndpoint", {{"endpoint", sdbus::Variant(m_endpoint)}}));
}

void Distributor::expectUpload()
{
    const auto parsed = [](const std::string& token) {
        return WebPushSubscription::parse(boost::algorithm::unhex(token));
    };
    m_subscription = parsed(
        m_testBed.takeUpload([&](const std::string& token) { return parsed(token).endpoint == m_endpoint; }));
}

void Distributor::installService()
{
    std::filesystem::create_directories(serviceFile().parent_path());
    m_testBed.device().write(serviceFile(),
                             fmt::format("[D-BUS Service]\nName={}\nExec={} --background --log-stderr\n",
                                         application, (m_testBed.programs() / "App/quorvane-mdm").string()));
    reloadServices();
}

std::filesystem::path Distributor::serviceFile() const
{
    return m_testBed.device().path("run/dbus-1/services") / (application + ".service");
}

void Distributor::removeService()
{
    std::filesystem::remove(serviceFile());
    reloadServices();
}

void Distributor::reloadServices()
{
    busProxy(*m_bus)->callMethod("ReloadConfig").onInterface("org.freedesktop.DBus");
}

bool Distributor::isApplicationActivatable() const
{
    std::vector<std::string> names;
    busProxy(*m_bus)
        ->callMethod("ListActivatableNames")
        .onInterface("org.freedesktop.DBus")
        .storeResultsTo(names);
    return std::find(names.begin(), names.end(), application) != names.end();
}

bool Distributor::restart()
{
    const bool isKnown = isApplicationActivatable();
    m_bus->leaveEventLoop();
    m_object.reset();
    m_connector.reset();
    m_bus.reset();
    if (!isKnown)
        m_token.clear();
    connect();
    if (isKnown)
        sendEndpoint();
    expectRegistration();
    if (!isKnown)
        sendEndpoint();
    expectUpload();
    return isKnown;
}

Distributor::Answer Distributor::deliver(const std::string& message)
{
    std::promise<Answer> received;
    send(message, 25s, [&](Answer answer) { received.set_value(answer); });
    return received.get_future().get();
}

void Distributor::send(const std::string& message, std::chrono::milliseconds answerTime,
                       std::function<void(Answer)> answered)
{
    const sdbus::Variant identifier(std::to_string(++m_messageCount));
    const sdbus::Variant bytes(std::vector<std::uint8_t>(message.begin(), message.end()));
    callAsync(
        *m_connector, makeCall("Message", {{"message", bytes}, {"id", identifier}}),
        [answered = std::move(answered)](const sdbus::MethodReply& /*reply*/, const sdbus::Error* error) {
            answered(error != nullptr ? Answer::error : Answer::acknowledged);
        },
        static_cast<std::uint64_t>(std::chrono::microseconds(answerTime).count()));
}

void Distributor::killBus()
{
    m_bus->leaveEventLoop(); // Otherwise the event loop throws when the bus exits.
    m_daemon.signal(SIGKILL);
    m_daemon.waitForExit();
}

sdbus::MethodCall Distributor::makeCall(const std::string& method, Dictionary arguments) const
{
    arguments.emplace("token", sdbus::Variant(m_token));
    auto message =
        m_connector->createMethodCall(InterfaceName("org.unifiedpush.Connector2"), MethodName(method));
    message << arguments;
    return message;
}
