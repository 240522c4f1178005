#include "Tools/qvctl/LiveSession.h"

#include <array>
#include <cerrno>
#include <csignal>
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

} // namespace Qvctl
