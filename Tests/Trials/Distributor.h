#pragma once

#include "Tests/Platform/Linux/Bus/SDBusVersions.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>

/// Returns the Web Push subscription encoded in a hexadecimal device token.
std::string subscriptionText(std::string_view token);

/// A device's session bus with a push distributor on it.
///
/// Threads: call from one thread; the bus thread replies to the application.
class Distributor {
public:
    /// Whether the distributor replies to registrations.
    enum class Behavior { responsive, silent };

    Distributor(const ThrowawayDevice& device, Behavior behavior);
    ~Distributor();
    Distributor(const Distributor&) = delete;
    Distributor& operator=(const Distributor&) = delete;

    /// Waits for the next registration; returns false after a timeout.
    bool waitForRegistration();
    /// Sends the application a new endpoint and waits for the reply. Throws `sdbus::Error`.
    void sendEndpoint(const std::string& endpoint);
    /// The reply to a message. Only a reply with the message's identifier acknowledges it.
    enum class Answer { acknowledged, withoutIdentifier, error };

    /// Delivers a message and waits for the reply.
    Answer deliver(const std::string& message);
    /// Delivers a message without waiting. Calls `answered` on the bus thread, with `error` if there is no
    /// reply within `answerTime`.
    void send(const std::string& message, std::chrono::milliseconds answerTime,
              std::function<void(Answer)> answered);
    void killBus();

private:
    using Dictionary = std::map<std::string, sdbus::Variant>;

    [[nodiscard]] sdbus::MethodCall makeCall(const std::string& method, Dictionary arguments) const;
    Dictionary call(const std::string& method, Dictionary arguments);

    ChildProcess m_daemon;
    std::unique_ptr<sdbus::IConnection> m_bus;
    std::unique_ptr<sdbus::IObject> m_object;
    std::unique_ptr<sdbus::IProxy> m_connector;
    std::counting_semaphore<> m_registrations{0};
    /// The token of the application's registration, which never changes.
    std::string m_token;
    /// Stored so that no reply is sent.
    std::optional<sdbus::Result<Dictionary>> m_answer;
    int m_messageCount = 0;
};
