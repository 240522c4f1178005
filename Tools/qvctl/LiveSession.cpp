#include "Tools/qvctl/LiveSession.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace Qvctl {

LiveSession::LiveSession()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    m_signals = Platform::Storage::FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC));
    if (!m_signals)
        throw std::system_error(errno, std::generic_category(), "signalfd");
}

bool LiveSession::waitFor(int descriptor, short events, int timeoutMilliseconds)
{
    // poll reports a closed pipe on standard output without being asked for any event.
    std::array<pollfd, 3> polled{
        {{descriptor, events, 0}, {m_signals.get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    while (::poll(polled.data(), polled.size(), timeoutMilliseconds) < 0) {
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "poll");
    }
    return polled[1].revents == 0 && polled[2].revents == 0;
}

LiveSession::Event LiveSession::waitForEvent(int descriptor, std::optional<std::chrono::milliseconds> timeout)
{
    using Count = std::chrono::milliseconds::rep;
    // The caller waits again if this is not enough.
    const int longest = timeout ? static_cast<int>(std::min<Count>(timeout->count(), INT_MAX)) : -1;
    std::array<pollfd, 2> polled{{{descriptor, POLLIN, 0}, {m_signals.get(), POLLIN, 0}}};
    if (::poll(polled.data(), polled.size(), longest) < 0 && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "poll");
    if (polled[1].revents != 0)
        return Event::signal;
    return polled[0].revents != 0 ? Event::ready : Event::timeout;
}

void LiveSession::endBySignal()
{
    signalfd_siginfo received{};
    const bool isRead = ::read(m_signals.get(), &received, sizeof received) == sizeof received;
    const int signal = isRead ? static_cast<int>(received.ssi_signo) : SIGTERM;
    std::signal(signal, SIG_DFL);
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    ::raise(signal);
    std::abort();
}

} // namespace Qvctl
