#include "Platform/Linux/ProcessSignals.h"

#include <gtest/gtest.h>

#include <csignal>
#include <future>
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
    std::promise<void> isReloaded;
    ProcessSignals signals([] { FAIL(); }, [&] { isReloaded.set_value(); });
    const auto send = [&](int signal) {
        isReloaded = {};
        ::kill(::getpid(), signal);
    };
    send(ProcessSignals::reloadSignal); // Without a handler, it does nothing.
    send(ProcessSignals::activationSignal);
    isReloaded.get_future().get();
    signals.setReloadHandler([&] { isReloaded.set_value(); });
    send(ProcessSignals::reloadSignal);
    isReloaded.get_future().get();
    signals.setReloadHandler({});
}

} // namespace
