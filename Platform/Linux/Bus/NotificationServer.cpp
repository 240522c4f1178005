#include "Platform/Linux/Bus/NotificationServer.h"

#include "Platform/AdapterLog.h"
#include "Platform/Encoding.h"
#include "Platform/Linux/Bus/BusClient.h"
#include "Platform/Timer.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

namespace Platform::Linux::Bus {

namespace {

// Also the interface name.
constexpr const char* serverName = "org.freedesktop.Notifications";
constexpr const char* serverPath = "/org/freedesktop/Notifications";

/// If the server takes longer, default capabilities are assumed.
constexpr std::chrono::seconds capabilitiesTime{2};
/// How long to wait for a late reply, in order to close the notification it reports.
constexpr std::chrono::seconds lateAnswerTime{60};
/// Limit for the single line sent to a server that shows no body.
constexpr std::size_t maximumLineCharacterCount = 100;

struct NotificationText {
    std::string summary;
    std::string body;
};

std::string escaped(std::string_view text)
{
    std::string markup;
    for (const char character : text)
        if (character == '&')
            markup += "&amp;";
        else if (character == '<' || character == '>')
            markup += character == '<' ? "&lt;" : "&gt;";
        else
            markup += character;
    return markup;
}

/// Cuts `line`, valid UTF-8, after `maximumLineCharacterCount` characters and marks the cut with an ellipsis.
std::string shortened(std::string line)
{
    std::size_t characterCount = 0;
    for (std::size_t index = 0; index < line.size(); ++index) {
        if (!isContinuationByte(line[index]) && characterCount++ == maximumLineCharacterCount) {
            line.erase(index);
            line += "…";
        }
    }
    return line;
}

NotificationText textOf(const UserNotification& notification, const std::string& applicationName,
                        const NotificationServer::Capabilities& capabilities)
{
    NotificationText text{.summary = plainText(notification.title, LineBreaks::replaced),
                          .body = plainText(notification.body, LineBreaks::kept)};
    if (text.summary.find_first_not_of(' ') == std::string::npos)
        text.summary = applicationName;
    if (!capabilities.hasBody && !text.body.empty())
        return {.summary = shortened(text.summary + ": " + plainText(text.body, LineBreaks::replaced)),
                .body = {}};
    if (capabilities.hasBodyMarkup)
        text.body = escaped(text.body);
    return text;
}

/// Never returns critical urgency: servers keep critical notifications on screen and show them in
/// do-not-disturb mode, which needs a permission this app does not request. Payloads marked "critical" or
/// "time-sensitive" are sent like any other.
std::uint8_t urgencyOf(const UserNotification& notification, unsigned options)
{
    enum Urgency : std::uint8_t { low, normal };
    return notification.isPassive || (options & PresentationOptions::banner) == 0 ? low : normal;
}

BusDictionary hintsOf(const UserNotification& notification, unsigned options, const std::string& desktopEntry)
{
    // No category: the standard ones are for email, calls, devices and so on.
    BusDictionary hints{{"desktop-entry", BusValue(desktopEntry)},
                        {"urgency", BusValue(urgencyOf(notification, options))},
                        {"transient", BusValue((options & PresentationOptions::list) == 0)}};
    if ((options & PresentationOptions::sound) != 0 && notification.hasSound)
        hints.emplace("sound-name", BusValue(std::string("message-new-instant")));
    else
        hints.emplace("suppress-sound", BusValue(true));
    return hints;
}

BusCall serverCall(const char* method, std::chrono::seconds timeout)
{
    return {serverName, serverPath, serverName, method, timeout};
}

BusSignal serverSignal(const char* member)
{
    return {serverName, serverPath, serverName, member};
}

} // namespace

NotificationServer::NotificationServer(const Ports& ports, Application application)
    : m_ports(ports),
      m_application(std::move(application)),
      m_errorLine(ports.log),
      m_client(std::make_unique<BusClient>(ports.bus, ports.mainQueue))
{
    constexpr std::uint32_t dismissedByTheUser = 2;
    m_client->watchNames("arg0='org.freedesktop.Notifications'",
                         [this](const std::string&, const std::string& owner) { adopt(owner); });
    m_client->subscribe<std::uint32_t>(
        serverSignal("ActionInvoked"),
        [this](const std::string& sender, std::uint32_t id) { end(sender, id, true); });
    m_client->subscribe<std::uint32_t, std::uint32_t>(
        serverSignal("NotificationClosed"),
        [this](const std::string& sender, std::uint32_t id, std::uint32_t reason) {
            end(sender, id, reason == dismissedByTheUser);
        });
    m_client->call<std::string>(
        {busName, busPath, busName, "GetNameOwner", answerTime},
        [this](const BusAnswer<std::string>& answer) {
            if (answer.value)
                adopt(*answer.value);
        },
        std::string(serverName));
}

NotificationServer::~NotificationServer() = default;

void NotificationServer::show(const UserNotification& notification, unsigned options,
                              std::function<void(bool isShown)> completion, std::function<void()> onResponse)
{
    if ((options & (PresentationOptions::list | PresentationOptions::banner)) == 0) {
        completion(false);
        return;
    }
    const unsigned number = m_nextNumber++;
    Request& request = m_requests[number];
    request = {.notification = notification,
               .options = options,
               .completion = std::move(completion),
               .onResponse = std::move(onResponse),
               .deadline = m_ports.timers.scheduledTimer(answerTime, [this, number] { timeOut(number); })};
    if (m_server.capabilities)
        send(number, request, *m_server.capabilities);
    else
        requestCapabilities();
}

void NotificationServer::adopt(const std::string& owner)
{
    if (owner == m_server.owner)
        return;
    m_server = {};
    m_server.owner = owner;
    m_errorLine.reset();
    if (!owner.empty())
        requestInformation();
    if (!owner.empty() || std::ranges::any_of(m_requests, [](auto& each) { return !each.second.isSent; }))
        requestCapabilities();
    if (!owner.empty())
        m_availabilityHandler();
}

void NotificationServer::requestInformation()
{
    // Name, vendor, version, protocol version.
    using Reply = std::tuple<std::string, std::string, std::string, std::string>;
    m_client->call<Reply>(serverCall("GetServerInformation", lateAnswerTime),
                          [this](const BusAnswer<Reply>& answer) {
                              if (answer.value && answer.sender == m_server.owner)
                                  m_server.information = {
                                      .name = plainText(std::get<0>(*answer.value), LineBreaks::replaced),
                                      .version = plainText(std::get<2>(*answer.value), LineBreaks::replaced)};
                          });
}

void NotificationServer::requestCapabilities()
{
    if (std::exchange(m_server.isRequestingCapabilities, true))
        return;
    using Reply = std::vector<std::string>;
    // If the bus still has to start the server, adopt() repeats the request with the shorter timeout.
    const auto time = m_server.owner.empty() ? answerTime : capabilitiesTime;
    m_client->call<Reply>(serverCall("GetCapabilities", time),
                          [this, requestedOwner = m_server.owner](const BusAnswer<Reply>& answer) {
                              receiveCapabilities(requestedOwner, answer);
                          });
}

void NotificationServer::receiveCapabilities(const std::string& requestedOwner,
                                             const BusAnswer<std::vector<std::string>>& answer)
{
    if (requestedOwner != m_server.owner)
        return; // That server has exited; adopt() has sent a new request.
    m_server.isRequestingCapabilities = false;
    Capabilities capabilities;
    if (answer.value) {
        const auto has = [&](const char* name) {
            return std::ranges::find(*answer.value, name) != answer.value->end();
        };
        capabilities = {
            .hasActions = has("actions"), .hasBody = has("body"), .hasBodyMarkup = has("body-markup")};
    }
    if (!m_server.owner.empty())
        m_server.capabilities = capabilities;
    for (auto& [number, request] : m_requests)
        if (!request.isSent)
            send(number, request, capabilities);
}

void NotificationServer::send(unsigned number, Request& request, const Capabilities& capabilities)
{
    request.isSent = true;
    const NotificationText text = textOf(request.notification, m_application.name, capabilities);
    std::vector<std::string> actions;
    if (capabilities.hasActions)
        actions = {"default", m_application.openAction};
    constexpr std::uint32_t replacesNone = 0;
    constexpr std::int32_t expiresByDefault = -1;
    m_client->call<std::uint32_t>(
        serverCall("Notify", lateAnswerTime),
        [this, number](const BusAnswer<std::uint32_t>& answer) { receiveId(number, answer); },
        m_application.name, replacesNone, std::string(), text.summary, text.body, actions,
        hintsOf(request.notification, request.options, m_application.desktopEntry), expiresByDefault);
}

void NotificationServer::receiveId(unsigned number, const BusAnswer<std::uint32_t>& answer)
{
    const Request request = std::move(m_requests.extract(number).mapped());
    const std::uint32_t id = answer.value.value_or(0);
    const bool isOfPresentServer = id != 0 && answer.sender == m_server.owner;
    if (!request.completion) {
        if (isOfPresentServer)
            m_client->call<std::tuple<>>(
                serverCall("CloseNotification", answerTime), [](const auto&) {}, id);
    } else if (id == 0) {
        fail(request, answer.value   ? "it returned the invalid id 0"
                      : answer.error ? answer.error->name
                                     : "it sent a malformed reply");
    } else {
        m_errorLine.reset();
        if (isOfPresentServer)
            remember(id, request.onResponse);
        request.completion(true);
    }
}

void NotificationServer::timeOut(unsigned number)
{
    const auto found = m_requests.find(number);
    const Request request = std::exchange(found->second, {});
    found->second.isSent = request.isSent;
    if (!request.isSent)
        m_requests.erase(found);
    fail(request, "it did not reply in time");
}

void NotificationServer::fail(const Request& request, const std::string& reason)
{
    m_errorLine.report("The notification server does not show notifications: " + reason);
    request.completion(false);
}

void NotificationServer::remember(std::uint32_t id, std::function<void()> onResponse)
{
    std::erase_if(m_server.shown, [id](const Shown& shown) { return shown.id == id; });
    if (m_server.shown.size() == maximumShownCount)
        m_server.shown.erase(m_server.shown.begin());
    m_server.shown.push_back({id, std::move(onResponse)});
}

void NotificationServer::end(const std::string& sender, std::uint32_t id, bool isResponse)
{
    auto& all = m_server.shown;
    const auto found = std::ranges::find(all, id, &Shown::id);
    // A peer can send signals directly to this connection, bypassing the match rule.
    if (sender != m_server.owner || found == all.end())
        return;
    const auto onResponse = std::move(found->onResponse);
    all.erase(found);
    if (isResponse)
        onResponse();
}

} // namespace Platform::Linux::Bus
