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

/// Shows notifications through the desktop's notification server, the owner of the bus name
/// org.freedesktop.Notifications. The bus starts the server if it can.
///
/// A notification counts as shown once the server has assigned it an id. If the server takes longer than
/// `answerTime`, the next presenter gets the notification and the late one is closed. When a server exits,
/// its notifications can no longer be tapped. The protocol always shows a banner, so a notification for the
/// list only is sent with low urgency, and one for neither list nor banner is not sent.
///
/// Threads: main. Ownership: holds references to its ports. Completions still pending at destruction are
/// never called. Errors: logs one line, then none until a notification is shown again.
/// Source: Desktop Notifications 1.2, freedesktop.org.
class NotificationServer final : public NotificationPresenter {
public:
    struct Ports {
        SessionBus& bus;
        DispatchQueue& mainQueue;
        TimerScheduler& timers;
        const AdapterLog& log;
    };
    /// The application the notifications come from.
    struct Application {
        /// As shown to the user.
        std::string name;
        /// The desktop file's name without ".desktop".
        std::string desktopEntry;
        /// The label of the action that opens a notification.
        std::string openAction;
    };
    struct Information {
        std::string name;
        std::string version;
    };

    /// The relevant server capabilities. The defaults apply to a server that does not report any.
    struct Capabilities {
        bool hasActions = false;
        bool hasBody = true;
        bool hasBodyMarkup = false;
    };

    static constexpr std::chrono::seconds answerTime{5};
    /// Limit of notifications whose response is tracked; the oldest is dropped first.
    static constexpr std::size_t maximumShownCount = 100;

    NotificationServer(const Ports& ports, Application application);
    ~NotificationServer() override;

    /// Calls `completion` immediately with false if `options` contain neither the list nor the banner.
    void show(const UserNotification& notification, unsigned options,
              std::function<void(bool isShown)> completion, std::function<void()> onResponse) override;
    /// `handler` is called each time a server appears.
    void onAvailable(std::function<void()> handler) override { m_availabilityHandler = std::move(handler); }

    /// Name and version of the current server; absent until it has replied.
    [[nodiscard]] std::optional<Information> information() const { return m_server.information; }

private:
    /// A notification the server has not confirmed yet.
    struct Request {
        UserNotification notification;
        unsigned options = 0;
        /// Empty after the deadline, when it has been called with false.
        std::function<void(bool)> completion;
        std::function<void()> onResponse;
        bool isSent = false;
        std::unique_ptr<Timer> deadline;
    };
    struct Shown {
        std::uint32_t id = 0;
        std::function<void()> onResponse;
    };
    /// State of the current server, discarded when the server exits.
    struct Server {
        /// Unique name of its connection; empty if no server runs.
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
    void receiveId(unsigned number, const BusAnswer<std::uint32_t>& answer);
    void timeOut(unsigned number);
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
