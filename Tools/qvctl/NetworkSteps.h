#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <vector>

namespace Qvctl {

/// The moment at which a step gives up.
class Deadline {
public:
    explicit Deadline(std::chrono::milliseconds timeout) : m_end(std::chrono::steady_clock::now() + timeout)
    {}
    /// Zero when it has passed.
    [[nodiscard]] std::chrono::milliseconds remaining() const;

private:
    std::chrono::steady_clock::time_point m_end;
};

/// Why a step on the way to a server came to nothing: one clause that has the step as its subject.
class StepError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct HostAndPort {
    /// Without the brackets of an IPv6 address.
    std::string host;
    std::uint16_t port = 0;

    /// "host:port", with brackets where they belong.
    [[nodiscard]] std::string text() const;
};

/// Whether the text is an address rather than a name.
bool isIPAddress(const std::string& host);

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;

    /// The address without the port.
    [[nodiscard]] std::string text() const;
};

/// All addresses of the host, IPv4 and IPv6, best first; never none. Throws `StepError`.
std::vector<SocketAddress> lookUp(const HostAndPort& server, std::chrono::milliseconds timeout);

struct ConnectionAttempts {
    /// To the best address that answered; none when no address did.
    Platform::Storage::FileDescriptor socket;
    std::string address;
    struct Failure {
        std::string address;
        std::string reason;
        /// This device has no way to addresses of that kind.
        bool isWithoutRoute = false;
    };
    std::vector<Failure> failures;
};

/// Tries all addresses side by side.
ConnectionAttempts connectToAny(const std::vector<SocketAddress>& addresses,
                                std::chrono::milliseconds timeout);

/// Has the proxy at the other end of `socket` make a way to the server (RFC 9110, section 9.3.6).
/// `authorization`, when it is not empty, is for the proxy alone. Throws `StepError`.
void openTunnel(int socket, const HostAndPort& server, std::string_view authorization,
                std::chrono::milliseconds timeout);

/// Waits for events of poll(2); false when the deadline passes.
bool waitFor(int descriptor, short events, const Deadline& deadline);

/// "5 s", "0.5 s".
std::string durationText(std::chrono::milliseconds duration);

} // namespace Qvctl
