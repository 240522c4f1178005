#include "Platform/Linux/LocalPushService.h"

#include "Platform/AdapterLog.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Linux/PrivateSocket.h"
#include "Platform/Push/PushPayload.h"
#include "Platform/Push/PushRegistrationError.h"
#include "Platform/UserDefaults.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Platform::Linux {

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::string_view tokenKey = "LocalPush.Token";
/// Delay before accepting again after accept4(2) failed.
constexpr int retryMilliseconds = 50;
/// How long `sendToLocalPushService` waits for the reply.
constexpr std::chrono::seconds answerTime{30};

bool isSameUser(const Storage::FileDescriptor& peer)
{
    return peerUser(peer) == ::geteuid();
}

void answer(const Storage::FileDescriptor& peer, const std::optional<std::string>& refusal)
{
    const std::string line = (refusal ? "error: " + *refusal : "ok") + "\n";
    // Short enough for any socket's buffer, so it never blocks. A peer that disconnected misses the reply.
    [[maybe_unused]] const auto sent =
        ::send(peer.get(), line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

Data randomToken()
{
    Data token(LocalPushService::tokenSize);
    if (::getrandom(token.data(), token.size(), 0) != static_cast<ssize_t>(token.size()))
        throw std::system_error(errno, std::generic_category(), "getrandom");
    return token;
}

} // namespace

struct LocalPushService::Peer {
    Storage::FileDescriptor socket;
    /// When it connected or last sent data.
    SteadyClock::time_point lastActivity;
    SteadyClock::time_point deadline;
    std::string bytes;
};

LocalPushService::LocalPushService(const Ports& ports, std::filesystem::path socketFile,
                                   std::chrono::milliseconds peerTime)
    : m_ports(ports), m_socketFile(std::move(socketFile)), m_peerTime(peerTime)
{}

LocalPushService::~LocalPushService()
{
    if (!m_thread.joinable())
        return;
    ::eventfd_write(m_wakeUp.get(), 1);
    m_thread.join();
    ::unlink(m_socketFile.c_str());
}

void LocalPushService::start(PushServiceListener& listener)
{
    m_listener = &listener;
    m_token = m_ports.store.data(tokenKey).value_or(Data());
    try {
        m_wakeUp = Storage::FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!m_wakeUp)
            throw std::system_error(errno, std::generic_category(), "eventfd");
        m_socket = listenOnPrivateSocket(m_socketFile);
        m_thread = std::thread([this] { serve(); });
        return;
    } catch (const std::runtime_error& error) {
        m_startFailure = error.what();
    }
    m_startFailure.insert(0, "The socket for local pushes cannot be created: ");
    m_ports.log.error(m_startFailure);
}

void LocalPushService::registerDevice()
{
    if (m_startFailure.empty() && m_token.size() != tokenSize) {
        m_token = randomToken();
        if (!m_ports.store.set(tokenKey, m_token))
            m_token.clear();
    }
    m_ports.mainQueue.async([this] {
        if (!m_startFailure.empty())
            m_listener->didFailToRegister(Push::pushRegistrationError(
                Push::PushRegistrationErrorCode::noDistributor, m_startFailure + "."));
        else if (m_token.empty())
            m_listener->didFailToRegister(Push::pushRegistrationError(
                Push::PushRegistrationErrorCode::notStored,
                "The token for local pushes cannot be stored. Fix the storage error in the log, then restart "
                "this application."));
        else
            m_listener->didRegister(m_token);
    });
}

void LocalPushService::serve()
{
    ::pthread_setname_np(::pthread_self(), "local push");
    std::vector<Peer> peers;
    while (true) {
        std::vector<pollfd> waiting{{m_wakeUp.get(), POLLIN, 0}, {m_socket.get(), POLLIN, 0}};
        int timeout = -1;
        for (const Peer& peer : peers) {
            waiting.push_back({peer.socket.get(), POLLIN, 0});
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(peer.deadline - SteadyClock::now());
            const int leftMilliseconds = std::max(0, static_cast<int>(left.count()));
            timeout = timeout < 0 ? leftMilliseconds : std::min(timeout, leftMilliseconds);
        }
        ::poll(waiting.data(), waiting.size(), timeout);
        if (waiting[0].revents != 0)
            return;
        std::size_t index = 2;
        std::erase_if(peers, [&](Peer& peer) {
            const bool isReadable = waiting[index++].revents != 0;
            if (isReadable)
                return !read(peer);
            if (SteadyClock::now() < peer.deadline)
                return false;
            answer(peer.socket,
                   "the payload was not complete in time; close the connection for writing after sending it");
            return true;
        });
        if (waiting[1].revents != 0)
            accept(peers);
    }
}

void LocalPushService::accept(std::vector<Peer>& peers) const
{
    Storage::FileDescriptor socket(::accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
        // If no descriptor is free, the connection stays pending and poll() would return immediately.
        pollfd ending{m_wakeUp.get(), POLLIN, 0};
        ::poll(&ending, 1, retryMilliseconds);
        return;
    }
    if (!isSameUser(socket)) {
        answer(socket, "only the user who runs this application may send to it");
        return;
    }
    if (peers.size() == maximumPeerCount) {
        const auto idlest = std::ranges::min_element(peers, {}, &Peer::lastActivity);
        answer(idlest->socket, "too many connections; send the payload immediately after connecting");
        peers.erase(idlest);
    }
    const auto now = SteadyClock::now();
    peers.push_back({std::move(socket), now, now + m_peerTime, {}});
}

bool LocalPushService::read(Peer& peer)
{
    std::array<char, Push::maximumPayloadSize + 1> buffer;
    while (true) {
        const ssize_t count = ::read(peer.socket.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return errno == EAGAIN;
        peer.lastActivity = SteadyClock::now();
        peer.bytes.append(buffer.data(), static_cast<std::size_t>(count));
        if (count == 0 || peer.bytes.size() > Push::maximumPayloadSize) {
            deliver(peer);
            return false;
        }
    }
}

void LocalPushService::deliver(Peer& peer)
{
    auto payload = Push::readPushPayload(peer.bytes);
    if (const auto* refusal = std::get_if<std::string>(&payload)) {
        answer(peer.socket, *refusal);
        m_inbox.async([this] { m_listener->didReceiveUnreadablePush(); });
        return;
    }
    auto socket = std::make_shared<Storage::FileDescriptor>(std::move(peer.socket));
    m_inbox.async([this, socket, payload = std::get<PropertyList::Dictionary>(std::move(payload))] {
        if (m_token.empty())
            answer(*socket, "the application has not registered for remote notifications yet");
        else
            m_listener->didReceive(payload, [socket](const std::optional<PushRefusal>& refusal) {
                answer(*socket, refusal ? std::optional(refusal->reason) : std::nullopt);
            });
    });
}

std::string sendToLocalPushService(const std::filesystem::path& socketFile, std::string_view payload)
{
    const Storage::FileDescriptor socket = connectToPrivateSocket(socketFile, answerTime);
    while (!payload.empty()) {
        const ssize_t sent = ::send(socket.get(), payload.data(), payload.size(), MSG_NOSIGNAL);
        if (sent < 0)
            break; // The service has stopped reading and replied with the reason.
        payload.remove_prefix(static_cast<std::size_t>(sent));
    }
    ::shutdown(socket.get(), SHUT_WR);
    std::string line;
    std::array<char, 512> buffer;
    ssize_t count = 0;
    while ((count = ::read(socket.get(), buffer.data(), buffer.size())) > 0)
        line.append(buffer.data(), static_cast<std::size_t>(count));
    if (!line.ends_with('\n'))
        throw std::system_error(count < 0 ? errno : ECONNABORTED, std::generic_category(),
                                socketFile.string());
    line.pop_back();
    return line;
}

} // namespace Platform::Linux
