#include "Platform/Linux/ProcessSignals.h"

#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <semaphore>
#include <unistd.h>

using Platform::Linux::ProcessSignals;

namespace {

TEST(ProcessSignalsTest, HandlesEachSignalIncludingPendingOnes)
{
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, ProcessSignals::activationSignal}) {
        SCOPED_TRACE(signal);
        std::promise<bool> isActivation;
        ProcessSignals::block();
        ::kill(::getpid(), signal);
        const ProcessSignals signals([&] { isActivation.set_value(false); },
                                     [&] { isActivation.set_value(true); });
        EXPECT_EQ(isActivation.get_future().get(), signal == ProcessSignals::activationSignal);
    }
}

TEST(ProcessSignalsTest, ReloadHandlerIsCalledOnlyWhileSet)
{
    ProcessSignals::block();
    std::binary_semaphore isHandled(0);
    ProcessSignals signals([] { FAIL(); }, [&] { isHandled.release(); });
    ::kill(::getpid(), ProcessSignals::reloadSignal); // Without a handler, it does nothing.
    ::kill(::getpid(), ProcessSignals::activationSignal);
    isHandled.acquire();
    signals.setReloadHandler([&] { isHandled.release(); });
    ::kill(::getpid(), ProcessSignals::reloadSignal);
    isHandled.acquire();
    signals.setReloadHandler({});
}

TEST(ProcessSignalsTest, SignalsAreBlockedUntilItIsDestroyed)
{
    for (const bool isEnded : {false, true}) {
        ProcessSignals::block();
        if (isEnded)
            const ProcessSignals signals([] {}, [] {});
        sigset_t blocked{};
        ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP, ProcessSignals::reloadSignal})
            EXPECT_EQ(::sigismember(&blocked, signal), isEnded ? 0 : 1);
    }
}

} // namespace
