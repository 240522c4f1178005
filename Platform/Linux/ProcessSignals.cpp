#include "Platform/Linux/ProcessSignals.h"

#include <pthread.h>
#include <utility>

namespace Platform::Linux {

namespace {

sigset_t handledSignals()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, ProcessSignals::activationSignal})
        ::sigaddset(&signals, signal);
    return signals;
}

} // namespace

void ProcessSignals::block()
{
    const sigset_t signals = handledSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

ProcessSignals::ProcessSignals(std::function<void()> onEnd, std::function<void()> onActivation)
    : m_thread([this, onEnd = std::move(onEnd), onActivation = std::move(onActivation)] {
          ::pthread_setname_np(::pthread_self(), "signals");
          run(onEnd, onActivation);
      })
{}

ProcessSignals::~ProcessSignals()
{
    m_isStopping = true;
    ::pthread_kill(m_thread.native_handle(), activationSignal);
    m_thread.join();
    const sigset_t signals = handledSignals();
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void ProcessSignals::run(const std::function<void()>& onEnd, const std::function<void()>& onActivation) const
{
    const sigset_t signals = handledSignals();
    for (int signal = 0; ::sigwait(&signals, &signal) == 0 && !m_isStopping;)
        (signal == activationSignal ? onActivation : onEnd)();
}

} // namespace Platform::Linux
