#include "Platform/Desktop/QtRunLoop.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

using namespace Platform;
using namespace std::chrono_literals;

namespace {

TEST(QtRunLoopTest, QuitsFromAnyThread)
{
    int argc = 0;
    Desktop::QtRunLoop loop(std::make_unique<QCoreApplication>(argc, nullptr));
    const auto watchdog = loop.scheduledTimer(30s, [] { FAIL() << "the loop did not end"; });
    const std::jthread other([&] { loop.quit(); });
    loop.run();
}

TEST(QtRunLoopTest, QuitsBetweenTwoItemsAndKeepsTheRest)
{
    int argc = 0;
    Desktop::QtRunLoop loop(std::make_unique<QCoreApplication>(argc, nullptr));
    const auto watchdog = loop.scheduledTimer(10s, [&] { loop.quit(); });
    std::vector<int> ran;
    const auto schedule = [&](int number, const std::function<void()>& end) {
        loop.async([&ran, number, end] {
            ran.push_back(number);
            end();
        });
    };
    schedule(1, [&] { loop.quit(); });
    schedule(2, [&] { loop.quit(); });
    schedule(3, [&] { schedule(4, [&] { loop.quit(); }); });
    loop.run();
    EXPECT_EQ(ran, (std::vector{1}));
    loop.run();
    EXPECT_EQ(ran, (std::vector{1, 2}));
    loop.run();
    EXPECT_EQ(ran, (std::vector{1, 2, 3, 4}));
}

} // namespace
