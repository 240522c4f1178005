#pragma once

#include "Platform/Push/YieldingQueue.h"
#include "Platform/PushService.h"
#include "Platform/Storage/FileDescriptor.h"

#include <chrono>
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

/// A built-in push distributor for tests and demonstrations. It stores a random token and receives payloads
/// through a socket that only the same user can open.
///
/// Each connection carries one payload: the peer writes it, closes its writing side, and reads one line: "ok"
/// once the payload is processed and committed, or "error: " and the reason. A peer that takes too long gets
/// an error line. When more than `maximumPeerCount` peers are connected, the one idle longest gets one too.
///
/// Threads: main; a separate thread serves the socket. Errors: if the socket cannot be created, for example
/// because other users have access to its folder, logs one line and fails every registration. A registration
/// also fails if the token cannot be stored.
class LocalPushService final : public PushService {
public:
    struct Ports {
        /// Stores the token.
        UserDefaults& store;
        DispatchQueue& mainQueue;
        const AdapterLog& log;
    };

    static constexpr std::size_t tokenSize = 32;
    /// Limit of connected peers that have not sent their whole payload yet.
    static constexpr std::size_t maximumPeerCount = 64;

    /// `peerTime` is the timeout from a peer's connection to the end of its payload.
    LocalPushService(const Ports& ports, std::filesystem::path socketFile,
                     std::chrono::milliseconds peerTime = std::chrono::seconds(10));
    ~LocalPushService() override;

    void start(PushServiceListener& listener) override;
    void registerDevice() override;

private:
    struct Peer;

    void serve();
    void accept(std::vector<Peer>& peers) const;
    /// Returns whether the peer may send more.
    bool read(Peer& peer);
    void deliver(Peer& peer);

    const Ports m_ports;
    const std::filesystem::path m_socketFile;
    const std::chrono::milliseconds m_peerTime;
    /// Passes payloads to the main thread; see `UnifiedPushService`.
    Push::YieldingQueue m_inbox{m_ports.mainQueue};
    PushServiceListener* m_listener = nullptr;
    /// Empty until the first registration on this device.
    Data m_token;
    /// Error message if there is no socket, otherwise empty.
    std::string m_startFailure;
    Storage::FileDescriptor m_socket;
    Storage::FileDescriptor m_wakeUp;
    std::thread m_thread;
};

/// Sends `payload` to the service at `socketFile` and returns its reply without the line break. Throws
/// `std::system_error` naming the socket if no process listens or no reply arrives, and another
/// `std::runtime_error` if the listening process runs as another user; that process receives nothing.
std::string sendToLocalPushService(const std::filesystem::path& socketFile, std::string_view payload);

} // namespace Platform::Linux
