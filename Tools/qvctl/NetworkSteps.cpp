#include "Tools/qvctl/NetworkSteps.h"

#include "Platform/Encoding.h"
#include "Platform/Error.h"

#include <fmt/format.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>

namespace Qvctl {

namespace {

using Platform::errorText;
using Platform::Storage::FileDescriptor;
using std::chrono::milliseconds;

/// A question to the resolver, which works on it beside us.
struct Question {
    Question(const HostAndPort& server) : host(server.host), port(std::to_string(server.port))
    {
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_flags = AI_NUMERICSERV;
        request.ar_name = host.c_str();
        request.ar_service = port.c_str();
        request.ar_request = &hints;
    }

    std::string host;
    std::string port;
    addrinfo hints{};
    gaicb request{};
};

std::string lookUpFailure(int code)
{
    switch (code) {
    case EAI_NONAME:
    case EAI_NODATA:
        return "no name server knows that name";
    case EAI_AGAIN:
        return "no name server answers";
    case EAI_SYSTEM:
        return errorText(errno);
    default:
        return ::gai_strerror(code);
    }
}

struct Attempt {
    const SocketAddress* address;
    FileDescriptor socket;
    /// EINPROGRESS until it is decided, 0 when it is connected.
    int error = EINPROGRESS;
};

Attempt attempt(const SocketAddress& address)
{
    Attempt attempt{&address,
                    FileDescriptor(::socket(address.storage.ss_family,
                                            SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP))};
    const auto* target = reinterpret_cast<const sockaddr*>(&address.storage);
    const bool isDone = attempt.socket && ::connect(attempt.socket.get(), target, address.size) == 0;
    attempt.error = isDone ? 0 : errno;
    return attempt;
}

/// Waits until something is decided about those under way.
void advance(std::vector<Attempt>& attempts, const Deadline& deadline)
{
    std::vector<pollfd> polled;
    for (const Attempt& attempt : attempts)
        polled.push_back({attempt.error == EINPROGRESS ? attempt.socket.get() : -1, POLLOUT, 0});
    ::poll(polled.data(), polled.size(), static_cast<int>(deadline.remaining().count()));
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        socklen_t size = sizeof(int);
        if (polled[i].revents != 0)
            ::getsockopt(attempts[i].socket.get(), SOL_SOCKET, SO_ERROR, &attempts[i].error, &size);
    }
}

bool isUnderWay(const Attempt& attempt)
{
    return attempt.error == EINPROGRESS;
}

/// The header of an answer over HTTP, and nothing of what comes after it.
std::string readHeader(int socket, const Deadline& deadline)
{
    constexpr std::size_t maximumHeaderBytes = 16384;
    std::string header;
    while (!header.ends_with("\r\n\r\n")) {
        char character = 0;
        if (!waitFor(socket, POLLIN, deadline))
            throw StepError("does not answer when asked for a way to the backend");
        const ssize_t count = ::recv(socket, &character, 1, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count != 1)
            throw StepError("closes the connection when asked for a way to the backend");
        header += character;
        if (header.size() > maximumHeaderBytes)
            throw StepError("does not answer in HTTP");
    }
    return header;
}

} // namespace

milliseconds Deadline::remaining() const
{
    const auto left = std::chrono::ceil<milliseconds>(m_end - std::chrono::steady_clock::now());
    return std::max(left, milliseconds(0));
}

std::string HostAndPort::text() const
{
    const bool isBracketed = host.find(':') != std::string::npos;
    return Platform::printable(isBracketed ? fmt::format("[{}]:{}", host, port)
                                           : fmt::format("{}:{}", host, port));
}

bool isIPAddress(const std::string& host)
{
    in6_addr address{};
    return ::inet_pton(AF_INET, host.c_str(), &address) == 1 ||
           ::inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

std::string SocketAddress::text() const
{
    std::array<char, NI_MAXHOST> name{};
    const auto* address = reinterpret_cast<const sockaddr*>(&storage);
    const int code = ::getnameinfo(address, size, name.data(), name.size(), nullptr, 0, NI_NUMERICHOST);
    return code == 0 ? name.data() : "an unknown address";
}

std::vector<SocketAddress> lookUp(const HostAndPort& server, milliseconds timeout)
{
    // getaddrinfo(3) itself takes as long as the name servers do.
    auto question = std::make_unique<Question>(server);
    gaicb* const requests[] = {&question->request};
    if (const int code = ::getaddrinfo_a(GAI_NOWAIT, const_cast<gaicb**>(requests), 1, nullptr); code != 0)
        throw StepError(lookUpFailure(code));
    const Deadline deadline(timeout);
    while (::gai_error(requests[0]) == EAI_INPROGRESS && deadline.remaining().count() > 0) {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(deadline.remaining());
        const std::chrono::nanoseconds rest = deadline.remaining() - seconds;
        const timespec patience{seconds.count(), std::max<long>(rest.count(), 0)};
        ::gai_suspend(requests, 1, &patience);
    }
    const int code = ::gai_error(requests[0]);
    if (code == EAI_INPROGRESS) {
        if (::gai_cancel(requests[0]) != EAI_CANCELED)
            static_cast<void>(question.release()); // The resolver still works on it.
        throw StepError(fmt::format("no name server answers within {}", durationText(timeout)));
    }
    if (code != 0)
        throw StepError(lookUpFailure(code));
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> answer(question->request.ar_result,
                                                                      &::freeaddrinfo);
    std::vector<SocketAddress> addresses;
    for (const addrinfo* entry = answer.get(); entry != nullptr; entry = entry->ai_next) {
        SocketAddress& address = addresses.emplace_back();
        address.size = entry->ai_addrlen;
        std::copy_n(reinterpret_cast<const char*>(entry->ai_addr), entry->ai_addrlen,
                    reinterpret_cast<char*>(&address.storage));
    }
    return addresses;
}

ConnectionAttempts connectToAny(const std::vector<SocketAddress>& addresses, milliseconds timeout)
{
    std::vector<Attempt> attempts;
    for (const SocketAddress& address : addresses)
        attempts.push_back(attempt(address));
    const Deadline deadline(timeout);
    while (std::any_of(attempts.begin(), attempts.end(), isUnderWay) && deadline.remaining().count() > 0)
        advance(attempts, deadline);

    ConnectionAttempts result;
    for (Attempt& attempt : attempts) {
        const std::string address = attempt.address->text();
        if (attempt.error != 0) {
            const std::string reason =
                isUnderWay(attempt) ? "no answer within " + durationText(timeout) : errorText(attempt.error);
            const bool isWithoutRoute = attempt.error == ENETUNREACH || attempt.error == EADDRNOTAVAIL ||
                                        attempt.error == EAFNOSUPPORT;
            result.failures.push_back({address, reason, isWithoutRoute});
        } else if (!result.socket) {
            result.socket = std::move(attempt.socket);
            result.address = address;
        }
    }
    return result;
}

void openTunnel(int socket, const HostAndPort& server, std::string_view authorization, milliseconds timeout)
{
    const Deadline deadline(timeout);
    std::string request = fmt::format("CONNECT {0} HTTP/1.1\r\nHost: {0}\r\n", server.text());
    if (!authorization.empty())
        request += fmt::format("Proxy-Authorization: {}\r\n", authorization);
    request += "\r\n";
    if (::send(socket, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size()))
        throw StepError("closes the connection when asked for a way to the backend");
    const std::string header = readHeader(socket, deadline);
    // "HTTP/1.1 200 Connection established".
    const auto blank = header.find(' ');
    if (!header.starts_with("HTTP/1.") || blank == std::string::npos)
        throw StepError("does not answer in HTTP");
    const std::string status = header.substr(blank + 1, header.find('\r') - blank - 1);
    if (!status.starts_with('2'))
        throw StepError(
            fmt::format("answers \"{}\" when asked for a way to the backend", Platform::printable(status)));
}

bool waitFor(int descriptor, short events, const Deadline& deadline)
{
    pollfd polled{descriptor, events, 0};
    do {
        const int count = ::poll(&polled, 1, static_cast<int>(deadline.remaining().count()));
        if (count != 0 && !(count < 0 && errno == EINTR))
            return count > 0;
    } while (deadline.remaining().count() > 0);
    return false;
}

std::string durationText(milliseconds duration)
{
    return fmt::format("{:g} s", std::chrono::duration<double>(duration).count());
}

} // namespace Qvctl
