#include "Tests/Trials/Distributor.h"

#include "Platform/Linux/DevicePaths.h"

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace {

std::string addressOn(const ThrowawayDevice& device)
{
    return "unix:path=" + device.path("run/bus").string();
}

sdbus::Variant bytesOf(const std::string& message)
{
    return std::vector<std::uint8_t>(message.begin(), message.end());
}

bool isAcknowledgment(const std::map<std::string, sdbus::Variant>& answer, const std::string& identifier)
{
    const auto found = answer.find("id");
    return found != answer.end() && found->second.get<std::string>() == identifier;
}

} // namespace

std::string subscriptionText(std::string_view token)
{
    std::string text;
    for (; token.size() >= 2; token.remove_prefix(2))
        text += static_cast<char>(std::stoi(std::string(token.substr(0, 2)), nullptr, 16));
    return text;
}

Distributor::Distributor(const ThrowawayDevice& device, Manner manner)
    : m_daemon({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address",
                "--address=" + addressOn(device)},
               {})
{
    if (!m_daemon.waitForLine("unix:"))
        throw std::runtime_error("there is no session bus to be had");
    ::setenv("DBUS_SESSION_BUS_ADDRESS", addressOn(device).c_str(), 1);
    m_bus = sdbus::createSessionBusConnection("org.unifiedpush.Distributor.Trial");
    m_connector = sdbus::createProxy(*m_bus, std::string(Platform::Linux::applicationIdentifier),
                                     "/org/unifiedpush/Connector");
    m_object = sdbus::createObject(*m_bus, "/org/unifiedpush/Distributor");
    m_object->registerMethod("Register")
        .onInterface("org.unifiedpush.Distributor2")
        .implementedAs([this, manner](sdbus::Result<Dictionary>&& result, const Dictionary& arguments) {
            if (manner == Manner::prompt)
                result.returnResults({{"success", sdbus::Variant(std::string("REGISTRATION_SUCCEEDED"))}});
            else
                m_answer = std::move(result);
            m_registration.set_value(arguments.at("token").get<std::string>());
        });
    m_object->finishRegistration();
    m_bus->enterEventLoopAsync();
}

Distributor::~Distributor()
{
    m_bus->leaveEventLoop();
}

bool Distributor::waitForRegistration()
{
    auto registration = m_registration.get_future();
    if (registration.wait_for(std::chrono::seconds(20)) != std::future_status::ready)
        return false;
    m_token = registration.get();
    return true;
}

void Distributor::giveEndpoint(const std::string& endpoint)
{
    call("NewEndpoint", {{"endpoint", sdbus::Variant(endpoint)}});
}

bool Distributor::deliver(const std::string& message)
{
    const std::string identifier = std::to_string(++m_messageCount);
    try {
        return isAcknowledgment(
            call("Message", {{"message", bytesOf(message)}, {"id", sdbus::Variant(identifier)}}), identifier);
    } catch (const sdbus::Error&) {
        return false;
    }
}

void Distributor::send(const std::string& message, std::chrono::milliseconds answerTime,
                       std::function<void(bool isAcknowledged)> answered)
{
    const std::string identifier = std::to_string(++m_messageCount);
    m_connector->callMethod(
        makeCall("Message", {{"message", bytesOf(message)}, {"id", sdbus::Variant(identifier)}}),
        [identifier, answered = std::move(answered)](sdbus::MethodReply& reply, const sdbus::Error* error) {
            Dictionary answer;
            if (error == nullptr)
                reply >> answer;
            answered(isAcknowledgment(answer, identifier));
        },
        answerTime);
}

void Distributor::killBus()
{
    m_bus->leaveEventLoop(); // It throws when the bus goes.
    m_daemon.signal(SIGKILL);
    m_daemon.waitForExit();
}

sdbus::MethodCall Distributor::makeCall(const std::string& method, Dictionary arguments) const
{
    arguments.emplace("token", sdbus::Variant(m_token));
    auto message = m_connector->createMethodCall("org.unifiedpush.Connector2", method);
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
