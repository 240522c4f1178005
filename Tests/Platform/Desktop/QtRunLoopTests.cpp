#include "Platform/Desktop/QtRunLoop.h"

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

using namespace Platform;
using namespace std::chrono_literals;

namespace {

TEST(QtRunLoopTest, EndsOnTheSignalsThatEndAProcessAndOnRequestFromAnyThread)
{
    int argc = 0;
    Desktop::QtRunLoop loop(std::make_unique<QCoreApplication>(argc, nullptr));
    const auto watchdog = loop.scheduledTimer(30s, [] { FAIL() << "the loop did not end"; });
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        loop.async([signal] { ::raise(signal); });
        loop.run();
    }
    const std::jthread other([&] { loop.quit(); });
    loop.run();
}

} // namespace
