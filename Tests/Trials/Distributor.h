#pragma once

#include "Platform/Linux/DevicePaths.h"
#include "Tests/Platform/Linux/Bus/SDBusVersions.h"
#include "Tests/Trials/TestBed.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <boost/algorithm/hex.hpp>

#include <csignal>
#include <cstdlib>
#include <future>
#include <map>
#include <semaphore>

/// A session bus for the device of a test bed, with a push distributor on it that behaves like KDE's: when it
/// starts, it drops the registration of an application that the bus cannot start, and announces an endpoint
/// to any other. It keeps a message that is answered with an error or not within 25 s, and forgets it after
/// any other reply.
///
/// Threads: call from one thread; the bus thread replies to the application. Failed checks throw `Violation`.
class Distributor {
public:
    /// Whether the distributor replies to registrations.
    enum class Behavior { responsive, silent };

    explicit Distributor(TestBed& testBed, Behavior behavior = Behavior::responsive)
        : m_testBed(testBed), m_behavior(behavior)
    {
        require(m_daemon.waitForLine("unix:"), "cannot start a session bus");
        ::setenv("DBUS_SESSION_BUS_ADDRESS", address().c_str(), 1);
        connect();
    }
    ~Distributor() { m_bus->leaveEventLoop(); }
    Distributor(const Distributor&) = delete;
    Distributor& operator=(const Distributor&) = delete;

    /// Restarts the application and waits until it has uploaded a token for this distributor.
    void registerApplication()
    {
        m_testBed.end();
        m_testBed.backend().takeRequests();
        m_testBed.start({"--push", "auto"});
        expectRegistration();
        renewEndpoint();
    }
    void expectRegistration()
    {
        m_testBed.requireWithLog(m_registrations.try_acquire_for(std::chrono::seconds(20)),
                                 "the application did not register");
    }
    /// Gives the application a new endpoint and waits for the upload of the new token.
    void renewEndpoint()
    {
        sendEndpoint();
        expectUpload();
    }

    /// Lets the bus start the application for a call, without a window, or no longer.
    void setActivatable(bool isActivatable)
    {
        const auto file = m_testBed.device().path("run/dbus-1/services") / (m_application + ".service");
        std::filesystem::create_directories(file.parent_path());
        if (isActivatable)
            m_testBed.device().write(
                file, fmt::format("[D-BUS Service]\nName={}\nExec={} --background --log-stderr\n",
                                  m_application, (m_testBed.programs() / "App/quorvane-mdm").string()));
        else
            std::filesystem::remove(file);
        sdbus::createProxy(*m_bus, ServiceName("org.freedesktop.DBus"), ObjectPath("/org/freedesktop/DBus"))
            ->callMethod("ReloadConfig")
            .onInterface("org.freedesktop.DBus");
        m_isActivatable = isActivatable;
    }
    /// Restarts the distributor and waits until the application has registered again and uploaded a token for
    /// a new endpoint.
    void restart()
    {
        m_bus->leaveEventLoop();
        m_object.reset();
        m_connector.reset();
        m_bus.reset();
        if (!m_isActivatable)
            m_token.clear();
        connect();
        if (m_isActivatable)
            sendEndpoint();
        expectRegistration();
        if (!m_isActivatable)
            sendEndpoint();
        expectUpload();
    }

    /// Encrypts a payload for the last token.
    [[nodiscard]] std::string encrypted(std::string_view payload) const
    {
        return encryptWebPush(m_subscription, std::string(payload));
    }
    enum class Answer { acknowledged, error };
    /// Delivers a message and waits for the reply.
    Answer deliver(const std::string& message)
    {
        std::promise<Answer> received;
        send(message, std::chrono::seconds(25), [&](Answer answer) { received.set_value(answer); });
        return received.get_future().get();
    }
    /// Delivers a message without waiting. Calls `answered` on the bus thread, with `error` if there is no
    /// reply within `answerTime`.
    void send(const std::string& message, std::chrono::microseconds answerTime,
              std::function<void(Answer)> answered)
    {
        const sdbus::Variant identifier(std::to_string(++m_messageCount));
        const sdbus::Variant bytes(std::vector<std::uint8_t>(message.begin(), message.end()));
        callAsync(
            *m_connector, makeCall("Message", {{"message", bytes}, {"id", identifier}}),
            [answered = std::move(answered)](const sdbus::MethodReply& /*reply*/, const sdbus::Error* error) {
                answered(error != nullptr ? Answer::error : Answer::acknowledged);
            },
            static_cast<std::uint64_t>(answerTime.count()));
    }
    void killBus()
    {
        m_bus->leaveEventLoop(); // Otherwise the event loop throws when the bus exits.
        m_daemon.signal(SIGKILL);
        m_daemon.waitForExit();
    }

private:
    using Dictionary = std::map<std::string, sdbus::Variant>;

    void connect()
    {
        m_bus = sdbus::createSessionBusConnection(BusName("org.unifiedpush.Distributor.Trial"));
        m_connector =
            sdbus::createProxy(*m_bus, ServiceName(m_application), ObjectPath("/org/unifiedpush/Connector"));
        m_object = sdbus::createObject(*m_bus, ObjectPath("/org/unifiedpush/Distributor"));
        addMethod(*m_object, "org.unifiedpush.Distributor2", "Register",
                  [this](sdbus::Result<Dictionary>&& result, const Dictionary& arguments) {
                      if (m_behavior == Behavior::responsive)
                          result.returnResults({{"success", sdbus::Variant("REGISTRATION_SUCCEEDED")}});
                      else
                          m_answer = std::move(result);
                      if (m_token.empty())
                          m_token = arguments.at("token").get<std::string>();
                      m_registrations.release();
                  });
        publishMethods(*m_object);
        m_bus->enterEventLoopAsync();
    }
    void sendEndpoint()
    {
        m_endpoint = fmt::format("https://push.example.org/{}", ++m_endpointCount);
        m_connector->callMethod(makeCall("NewEndpoint", {{"endpoint", sdbus::Variant(m_endpoint)}}));
    }
    void expectUpload()
    {
        m_testBed.takeUpload([&](const std::string& token) {
            m_subscription = WebPushSubscription::parse(boost::algorithm::unhex(token));
            return m_subscription.endpoint == m_endpoint;
        });
    }
    [[nodiscard]] sdbus::MethodCall makeCall(const std::string& method, Dictionary arguments) const
    {
        arguments.emplace("token", sdbus::Variant(m_token));
        auto message =
            m_connector->createMethodCall(InterfaceName("org.unifiedpush.Connector2"), MethodName(method));
        message << arguments;
        return message;
    }

    [[nodiscard]] std::string address() const
    {
        return "unix:path=" + m_testBed.device().path("run/bus").string();
    }
    /// Programs that the bus starts have this environment, too.
    [[nodiscard]] ChildProcess::Environment environment() const
    {
        ChildProcess::Environment environment = m_testBed.device().environment();
        environment["LD_PRELOAD"] = "";
        return environment;
    }

    const std::string m_application{Platform::Linux::applicationIdentifier};
    TestBed& m_testBed;
    const Behavior m_behavior;
    ChildProcess m_daemon{
        {"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address", "--address=" + address()},
        environment()};
    std::unique_ptr<sdbus::IConnection> m_bus;
    std::unique_ptr<sdbus::IObject> m_object;
    std::unique_ptr<sdbus::IProxy> m_connector;
    std::counting_semaphore<> m_registrations{0};
    /// The token of the application's registration, which never changes.
    std::string m_token;
    /// Stored so that no reply is sent.
    std::optional<sdbus::Result<Dictionary>> m_answer;
    WebPushSubscription m_subscription;
    std::string m_endpoint;
    bool m_isActivatable = false;
    int m_endpointCount = 0;
    int m_messageCount = 0;
};
