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
    sigset_t ending;
    ::sigemptyset(&ending);
    ::sigaddset(&ending, SIGINT);
    ::sigaddset(&ending, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    m_signals = Platform::Storage::FileDescriptor(::signalfd(-1, &ending, SFD_CLOEXEC));
    if (!m_signals)
        throw std::system_error(errno, std::generic_category(), "signals");
}

bool LiveSession::waitFor(int descriptor, short events, int timeoutMilliseconds)
{
    // Asked for no events, standard output still tells when its other end has gone.
    std::array<pollfd, 3> waiting{
        {{descriptor, events, 0}, {m_signals.get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    while (::poll(waiting.data(), waiting.size(), timeoutMilliseconds) < 0) {
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "waiting");
    }
    return waiting[1].revents == 0 && waiting[2].revents == 0;
}

} // namespace Qvctl
