#pragma once

#include "Tests/Platform/Linux/Bus/SDBusVersions.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>

/// A device's session bus with a push distributor on it that behaves like KDE's: when it starts, it drops the
/// registration of an application that the bus cannot start, and announces the endpoint of any other again.
/// It keeps a message that is answered with an error or not within 25 s, and forgets it after any other
/// reply.
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
    enum class Answer { acknowledged, error };

    /// Lets the bus start the application for a call, without a window.
    void installService(const std::filesystem::path& programs);
    void removeService();
    /// Waits for a line of the log of an application that the bus started.
    bool waitForActivatedLine(std::string_view text) { return m_daemon.waitForLine(text); }
    /// Ends the application that the bus started; returns false if it does not end.
    bool endActivated();
    /// Restarts the distributor, which then has a new endpoint for the application. Returns whether it still
    /// knows the application.
    bool restart(const std::string& endpoint);

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
    [[nodiscard]] std::filesystem::path serviceFile() const;
    void reloadServices();
    [[nodiscard]] bool isApplicationActivatable() const;
    [[nodiscard]] sdbus::MethodCall makeCall(const std::string& method, Dictionary arguments) const;

    const ThrowawayDevice& m_device;
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
    int m_messageCount = 0;
};
