#pragma once

#include "Tests/Platform/Linux/Bus/SDBusVersions.h"
#include "Tests/Trials/TestBed.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>

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

    explicit Distributor(TestBed& testBed, Behavior behavior = Behavior::responsive);
    ~Distributor();
    Distributor(const Distributor&) = delete;
    Distributor& operator=(const Distributor&) = delete;

    /// Restarts the application and waits until it has uploaded a token for this distributor.
    void registerApplication();
    void expectRegistration();
    /// Gives the application a new endpoint and waits for the upload of the new token.
    void renewEndpoint();

    /// Lets the bus start the application for a call, without a window.
    void installService();
    void removeService();
    /// Restarts the distributor and waits until the application has registered again and uploaded a token for
    /// a new endpoint. Returns whether the distributor still knew the application.
    bool restart();

    /// Encrypts a payload for the last token.
    [[nodiscard]] std::string encrypted(std::string_view payload) const
    {
        return encryptWebPush(m_subscription, std::string(payload));
    }
    enum class Answer { acknowledged, error };
    /// Delivers a message and waits for the reply.
    Answer deliver(const std::string& message);
    /// Delivers a message without waiting. Calls `answered` on the bus thread, with `error` if there is no
    /// reply within `answerTime`.
    void send(const std::string& message, std::chrono::milliseconds answerTime,
              std::function<void(Answer)> answered);
    void killBus();

private:
    using Dictionary = std::map<std::string, sdbus::Variant>;

    void connect();
    void sendEndpoint();
    void expectUpload();
    [[nodiscard]] std::filesystem::path serviceFile() const;
    void reloadServices();
    [[nodiscard]] bool isApplicationActivatable() const;
    [[nodiscard]] sdbus::MethodCall makeCall(const std::string& method, Dictionary arguments) const;

    TestBed& m_testBed;
    const Behavior m_behavior;
    ChildProcess m_daemon;
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
    int m_endpointCount = 0;
    int m_messageCount = 0;
};
