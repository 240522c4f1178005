#include "Platform/Linux/ProcessSignals.h"

#include <gtest/gtest.h>

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
        if (signal == SIGTERM) // Handled after SIGUSR2, which does nothing without a handler.
            ::kill(::getpid(), ProcessSignals::reloadSignal);
        ::kill(::getpid(), signal);
        {
            std::promise<bool> isActivation;
            std::binary_semaphore isReloaded(0);
            ProcessSignals signals([&] { isActivation.set_value(false); },
                                   [&] { isActivation.set_value(true); });
            EXPECT_EQ(isActivation.get_future().get(), signal == ProcessSignals::activationSignal);
            signals.setReloadHandler([&] { isReloaded.release(); });
            ::kill(::getpid(), ProcessSignals::reloadSignal);
            isReloaded.acquire();
        }
        EXPECT_FALSE(isBlocked(signal) || isBlocked(ProcessSignals::reloadSignal));
    }
}

} // namespace
