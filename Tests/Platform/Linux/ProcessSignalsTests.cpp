#include "Platform/Linux/ProcessSignals.h"

#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <semaphore>
#include <unistd.h>

using Platform::Linux::ProcessSignals;

namespace {

TEST(ProcessSignalsTest, HandlesEachSignalIncludingPendingOnesAndUnblocksThemAtItsEnd)
{
    const auto isBlocked = [](int signal) {
        sigset_t blocked{};
        ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        return ::sigismember(&blocked, signal) == 1;
    };
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, ProcessSignals::activationSignal}) {
        SCOPED_TRACE(signal);
        ProcessSignals::block();
        EXPECT_TRUE(isBlocked(signal) && isBlocked(ProcessSignals::reloadSignal));
        ::kill(::getpid(), signal);
        {
            std::promise<bool> isActivation;
            const ProcessSignals signals([&] { isActivation.set_value(false); },
                                         [&] { isActivation.set_value(true); });
            EXPECT_EQ(isActivation.get_future().get(), signal == ProcessSignals::activationSignal);
        }
        EXPECT_FALSE(isBlocked(signal) || isBlocked(ProcessSignals::reloadSignal));
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

} // namespace
