#pragma once

#include "Platform/Push/YieldingQueue.h"
#include "Platform/PushService.h"
#include "Platform/Storage/FileDescriptor.h"

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace Platform {
class AdapterLog;
class DispatchQueue;
class UserDefaults;
} // namespace Platform

namespace Platform::Linux {

/// A push distributor of this device's own, for tests and demonstrations: its token is random and kept, and
/// payloads come in through a socket that only the same user can open.
///
/// One connection carries one payload: the peer writes it, closes its writing side, and reads one line, "ok"
/// once the payload is dealt with and committed, or "error: " and the reason. A peer that takes too long gets
/// such a line, as does the one that has been idle for the longest when one more than `maximumPeerCount`
/// connects.
///
/// Threads: main, as a `PushService`; the socket is served on a thread of its own. Errors: a socket that
/// cannot be made, for one because its folder is open to other users, is one line to the log, and every
/// registration fails with it; one fails as well when its token cannot be stored.
class LocalPushService final : public PushService {
public:
    struct Ports {
        /// Keeps the token.
        UserDefaults& store;
        DispatchQueue& mainQueue;
        const AdapterLog& log;
    };

    static constexpr std::size_t tokenSize = 32;
    /// Of those that have not sent their whole payload yet.
    static constexpr std::size_t maximumPeerCount = 64;

    LocalPushService(const Ports& ports, std::filesystem::path socketFile);
    ~LocalPushService() override;

    void start(PushServiceListener& listener) override;
    void registerDevice() override;

private:
    struct Peer;

    void serve();
    void accept(std::vector<Peer>& peers) const;
    /// Whether more is to come from the peer.
    bool read(Peer& peer);
    void take(Peer& peer);

    const Ports m_ports;
    const std::filesystem::path m_socketFile;
    /// Takes payloads to the main thread; see `UnifiedPushService`.
    Push::YieldingQueue m_inbox{m_ports.mainQueue};
    PushServiceListener* m_listener = nullptr;
    /// Empty until the first registration, this time or an earlier one.
    Data m_token;
    /// Why there is no socket; empty when there is.
    std::string m_startFailure;
    Storage::FileDescriptor m_socket;
    Storage::FileDescriptor m_wakeUp;
    std::thread m_thread;
};

/// Sends `payload` as a peer and returns the line that comes back, without its line break. Throws
/// `std::system_error` naming the socket when nobody listens there or the answer does not come, and another
/// `std::runtime_error` when a process of another user listens: it gets nothing.
std::string sendToLocalPushService(const std::filesystem::path& socketFile, std::string_view payload);

} // namespace Platform::Linux
