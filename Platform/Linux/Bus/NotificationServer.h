#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Shell.h"
#include "Platform/Timer.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Platform {
class DispatchQueue;
} // namespace Platform

namespace Platform::Linux::Bus {

class BusClient;
class SessionBus;
template <typename Reply>
struct BusAnswer;

/// Shows notifications through the server of this desktop, the one that owns the name
/// org.freedesktop.Notifications; one that the bus can start counts.
///
/// A notification counts as shown once the server has given it an id. A server that takes longer than
/// `answerTime` is taken for none: what it shows after that is closed again, for another presenter has had
/// its turn. Notifications die with their server: nobody answers them any more. This protocol always pops
/// them up, so one for the list alone comes with low urgency, and one for neither the list nor the banner is
/// not shown: there would be nothing to see.
///
/// Threads: main. Ownership: refers to its ports. Completions that have not been called by the end of this
/// object never are. Errors: one line to the log until something has been shown again.
/// Source: Desktop Notifications 1.2, freedesktop.org.
class NotificationServer final : public NotificationPresenter {
public:
    struct Ports {
        SessionBus& bus;
        DispatchQueue& mainQueue;
        TimerScheduler& timers;
        const AdapterLog& log;
    };
    /// Whose notifications they are.
    struct Application {
        /// For people.
        std::string name;
        /// The name of the desktop entry, without ".desktop".
        std::string desktopEntry;
    };
    struct Information {
        std::string name;
        std::string version;
    };

    /// What a server can do, as far as it matters here. At first that of one that does not say.
    struct Capabilities {
        bool hasActions = false;
        bool hasBody = true;
        bool hasBodyMarkup = false;
    };

    static constexpr std::chrono::seconds answerTime{5};
    /// So many wait for the user's answer; the oldest is forgotten for the next.
    static constexpr std::size_t maximumShownCount = 100;

    NotificationServer(const Ports& ports, Application application);
    ~NotificationServer() override;

    /// Answers at once, and false, when `options` have neither the list nor the banner.
    void show(const UserNotification& notification, unsigned options,
              std::function<void(bool isShown)> completion, std::function<void()> onResponse) override;
    /// Called for each server that comes.
    void onAvailable(std::function<void()> handler) override { m_availabilityHandler = std::move(handler); }

    /// What the present server says of itself; absent while there is none, or it has not said it yet.
    [[nodiscard]] std::optional<Information> information() const { return m_server.information; }

private:
    /// A notification that the server has not answered yet.
    struct Request {
        UserNotification notification;
        unsigned options = 0;
        /// Empty when it has been called: the answer comes too late.
        std::function<void(bool)> completion;
        std::function<void()> onResponse;
        bool isSent = false;
        std::unique_ptr<Timer> deadline;
    };
    struct Shown {
        std::uint32_t id = 0;
        std::function<void()> onResponse;
    };
    /// What is known of the server, and ends with it.
    struct Server {
        /// Its connection; empty while there is none.
        std::string owner;
        bool isRequestingCapabilities = false;
        std::optional<Capabilities> capabilities;
        std::optional<Information> information;
        /// Oldest first.
        std::vector<Shown> shown;
    };
    void adopt(const std::string& owner);
    void requestInformation();
    void requestCapabilities();
    void receiveCapabilities(const std::string& requestedOwner,
                             const BusAnswer<std::vector<std::string>>& answer);
    void send(unsigned number, Request& request, const Capabilities& capabilities);
    void takeAnswer(unsigned number, const BusAnswer<std::uint32_t>& answer);
    void giveUp(unsigned number);
    void fail(const Request& request, const std::string& reason);
    void remember(std::uint32_t id, std::function<void()> onResponse);
    void end(const std::string& sender, std::uint32_t id, bool isResponse);

    const Ports m_ports;
    const Application m_application;
    ErrorLine m_errorLine;
    std::function<void()> m_availabilityHandler = [] {};
    Server m_server;
    std::map<unsigned, Request> m_requests;
    unsigned m_nextNumber = 0;
    const std::unique_ptr<BusClient> m_client;
};

} // namespace Platform::Linux::Bus
