#include "Platform/Desktop/GuiApplication.h"
#include "Platform/Desktop/QtRunLoop.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace Platform;
using namespace std::chrono_literals;

namespace {

TEST(QtRunLoopTest, QuitsFromAnyThread)
{
    int argc = 0;
    Desktop::QtRunLoop loop(std::make_unique<QCoreApplication>(argc, nullptr));
    const auto watchdog = loop.scheduledTimer(10s, [&] {
        loop.quit();
        FAIL() << "the loop did not end";
    });
    std::jthread other([&] { loop.quit(); });
    loop.run();
    loop.async([&] { other = std::jthread([&] { loop.async([&] { loop.quit(); }); }); });
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
    schedule(1, [&] {
        schedule(3, [&] { schedule(4, [&] { loop.quit(); }); });
        loop.quit();
    });
    schedule(2, [&] { loop.quit(); });
    loop.quit();
    loop.run();
    EXPECT_TRUE(ran.empty());
    loop.run();
    EXPECT_EQ(ran, (std::vector{1}));
    loop.run();
    EXPECT_EQ(ran, (std::vector{1, 2}));
    loop.run();
    EXPECT_EQ(ran, (std::vector{1, 2, 3, 4}));
}

TEST(QtRunLoopTest, TimersFireOnceUnlessInvalidatedOrDestroyed)
{
    int argc = 0;
    Desktop::QtRunLoop loop(std::make_unique<QCoreApplication>(argc, nullptr));
    int count = 0;
    const auto timer = loop.scheduledTimer(0ms, [&] { ++count; });
    const auto invalid = loop.scheduledTimer(0ms, [&] { count += 10; });
    invalid->invalidate();
    loop.scheduledTimer(0ms, [&] { count += 100; });
    // A timer that destroys itself still has what its block refers to.
    std::unique_ptr<Timer> last;
    last = loop.scheduledTimer(20ms, [&loop, &last, name = std::string("a name that is on the heap")] {
        last.reset();
        EXPECT_EQ(name, "a name that is on the heap");
        loop.quit();
    });
    loop.run();
    EXPECT_EQ(count, 1);
}

TEST(GuiApplicationTest, StartsWithoutADisplayOnlyIfNoneIsNeeded)
{
    for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        qunsetenv(variable);
    int argc = 0;
    EXPECT_THROW(Desktop::makeGuiApplication(argc, nullptr, Desktop::Display::needed), Desktop::NoDisplay);
    const auto start = [&](Desktop::Display display) {
        const auto application = Desktop::makeGuiApplication(argc, nullptr, display);
        std::_Exit(Desktop::hasDisplay() || qEnvironmentVariableIsSet("QT_QPA_PLATFORM") ? 1 : 0);
    };
    EXPECT_EXIT(start(Desktop::Display::optional), testing::ExitedWithCode(0), "");
    qputenv("DISPLAY", ":no such display");
    EXPECT_EXIT(start(Desktop::Display::optional), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(start(Desktop::Display::needed), testing::ExitedWithCode(69),
                "cannot be opened; check DISPLAY");
    qunsetenv("DISPLAY");
    qputenv("WAYLAND_DISPLAY", "no such display");
    EXPECT_EXIT(start(Desktop::Display::needed), testing::ExitedWithCode(69), "cannot be opened");
    qunsetenv("WAYLAND_DISPLAY");
    const auto failLater = [&] {
        const auto application = Desktop::makeGuiApplication(argc, nullptr, Desktop::Display::optional);
        qFatal("%s", qPrintable("input method: " + qEnvironmentVariable("QT_IM_MODULE")));
    };
    EXPECT_DEATH(failLater(), "input method: none") << "only errors of the start are explained";
}

} // namespace
