#pragma once

#include "Tools/Tour/ThrowawayDevice.h"

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>

/// The Web Push subscription that a hexadecimal device token holds.
std::string subscriptionText(std::string_view token);

/// The session bus of a device, with a push distributor on it.
///
/// Threads: calls from one; the application is answered on a thread of the bus.
class Distributor {
public:
    /// Whether an application that registers is told its endpoint, or nothing at all.
    enum class Manner { prompt, silent };

    Distributor(const ThrowawayDevice& device, Manner manner);
    ~Distributor();
    Distributor(const Distributor&) = delete;
    Distributor& operator=(const Distributor&) = delete;

    /// Waits until an application has asked to be registered, once more than waited for before; false when
    /// none does in time.
    bool waitForRegistration();
    /// Gives the application an endpoint, from the second one on in the place of the one before. Waits for
    /// the answer; throws `sdbus::Error`.
    void sendEndpoint(const std::string& endpoint);
    /// What became of a message. A reply without its identifier may pass for an acknowledgment.
    enum class Answer { acknowledged, withoutIdentifier, error };

    /// Hands over what was sent to the endpoint, and waits for the answer.
    Answer deliver(const std::string& message);
    /// The same without waiting. `answered` is called on the thread of the bus; one that takes longer than
    /// `answerTime` is an error.
    void send(const std::string& message, std::chrono::milliseconds answerTime,
              std::function<void(Answer)> answered);
    /// Ends the bus without a word.
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
    /// The application's name for its registration, the same every time.
    std::string m_token;
    /// Kept so that it is never given.
    std::optional<sdbus::Result<Dictionary>> m_answer;
    int m_messageCount = 0;
};
