#include "Platform/Linux/ProcessSignals.h"

#include <pthread.h>
#include <utility>

namespace Platform::Linux {

namespace {

sigset_t handledSignals()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int signal :
         {SIGTERM, SIGINT, SIGHUP, ProcessSignals::activationSignal, ProcessSignals::reloadSignal})
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

void ProcessSignals::setReloadHandler(std::function<void()> handler)
{
    const std::lock_guard lock(m_mutex);
    m_onReload = std::move(handler);
}

void ProcessSignals::run(const std::function<void()>& onEnd, const std::function<void()>& onActivation)
{
    const sigset_t signals = handledSignals();
    for (int signal = 0; ::sigwait(&signals, &signal) == 0 && !m_isStopping;) {
        if (signal == reloadSignal)
            reload();
        else
            (signal == activationSignal ? onActivation : onEnd)();
    }
}

void ProcessSignals::reload()
{
    const std::lock_guard lock(m_mutex);
    if (m_onReload)
        m_onReload();
}

} // namespace Platform::Linux
