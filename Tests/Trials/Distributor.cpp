#include "Tests/Trials/Distributor.h"

#include "Platform/Linux/DevicePaths.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace {

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

bool isApplicationActivatable()
{
    const auto connection = sdbus::createSessionBusConnection();
    std::vector<std::string> names;
    busProxy(*connection)
        ->callMethod("ListActivatableNames")
        .onInterface("org.freedesktop.DBus")
        .storeResultsTo(names);
    return std::find(names.begin(), names.end(), Platform::Linux::applicationIdentifier) != names.end();
}

sdbus::Variant bytesOf(const std::string& message)
{
    return sdbus::Variant(std::vector<std::uint8_t>(message.begin(), message.end()));
}

Distributor::Answer answerIn(const std::map<std::string, sdbus::Variant>& reply,
                             const std::string& identifier)
{
    const auto found = reply.find("id");
    const bool isSame = found != reply.end() && found->second.get<std::string>() == identifier;
    return isSame ? Distributor::Answer::acknowledged : Distributor::Answer::withoutIdentifier;
}

} // namespace

std::string subscriptionText(std::string_view token)
{
    std::string text;
    for (; token.size() >= 2; token.remove_prefix(2))
        text += static_cast<char>(std::stoi(std::string(token.substr(0, 2)), nullptr, 16));
    return text;
}

Distributor::Distributor(const ThrowawayDevice& device, Behavior behavior)
    : m_device(device),
      m_behavior(behavior),
      m_daemon({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address",
                "--address=" + addressOn(device)},
               environmentOf(device))
{
    if (!m_daemon.waitForLine("unix:"))
        throw std::runtime_error("cannot start a session bus");
    ::setenv("DBUS_SESSION_BUS_ADDRESS", addressOn(device).c_str(), 1);
    connect();
}

void Distributor::connect()
{
    m_bus = sdbus::createSessionBusConnection(BusName("org.unifiedpush.Distributor.Trial"));
    m_connector = sdbus::createProxy(*m_bus, ServiceName(std::string(Platform::Linux::applicationIdentifier)),
                                     ObjectPath("/org/unifiedpush/Connector"));
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

bool Distributor::waitForRegistration()
{
    return m_registrations.try_acquire_for(std::chrono::seconds(20));
}

void Distributor::sendEndpoint(const std::string& endpoint)
{
    call("NewEndpoint", {{"endpoint", sdbus::Variant(endpoint)}});
}

void Distributor::installService(const std::filesystem::path& programs)
{
    std::filesystem::create_directories(serviceFile().parent_path());
    m_device.write(serviceFile(), fmt::format("[D-BUS Service]\nName={}\nExec={} --background --log-stderr\n",
                                              Platform::Linux::applicationIdentifier,
                                              (programs / "App/quorvane-mdm").string()));
    reloadServices();
}

std::filesystem::path Distributor::serviceFile() const
{
    return m_device.path("run/dbus-1/services") /
           std::string(Platform::Linux::applicationIdentifier).append(".service");
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

bool Distributor::endActivated()
{
    std::uint32_t process = 0;
    busProxy(*m_bus)
        ->callMethod("GetConnectionUnixProcessID")
        .onInterface("org.freedesktop.DBus")
        .withArguments(std::string(Platform::Linux::applicationIdentifier))
        .storeResultsTo(process);
    const pid_t application = static_cast<pid_t>(process);
    ::kill(application, SIGTERM);
    for (int attempt = 0; attempt < 2000 && ::kill(application, 0) == 0; ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return ::kill(application, 0) != 0;
}

bool Distributor::restart(const std::string& endpoint)
{
    m_bus->leaveEventLoop();
    m_object.reset();
    m_connector.reset();
    m_bus.reset();
    const bool isKnown = isApplicationActivatable();
    if (!isKnown)
        m_token.clear();
    connect();
    if (isKnown)
        sendEndpoint(endpoint);
    return isKnown;
}

Distributor::Answer Distributor::deliver(const std::string& message)
{
    const std::string identifier = std::to_string(++m_messageCount);
    try {
        return answerIn(call("Message", {{"message", bytesOf(message)}, {"id", sdbus::Variant(identifier)}}),
                        identifier);
    } catch (const sdbus::Error&) {
        return Answer::error;
    }
}

void Distributor::send(const std::string& message, std::chrono::milliseconds answerTime,
                       std::function<void(Answer)> answered)
{
    const std::string identifier = std::to_string(++m_messageCount);
    callAsync(
        *m_connector,
        makeCall("Message", {{"message", bytesOf(message)}, {"id", sdbus::Variant(identifier)}}),
        [identifier, answered = std::move(answered)](sdbus::MethodReply& reply, const sdbus::Error* error) {
            if (error != nullptr) {
                answered(Answer::error);
                return;
            }
            Dictionary answer;
            reply >> answer;
            answered(answerIn(answer, identifier));
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

Distributor::Dictionary Distributor::call(const std::string& method, Dictionary arguments)
{
    auto reply = m_connector->callMethod(makeCall(method, std::move(arguments)));
    Dictionary answer;
    reply >> answer;
    return answer;
}
