#include "Platform/Desktop/GuiApplication.h"
#include "Platform/Desktop/QtRunLoop.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace Platform;
using namespace std::chrono_literals;

namespace {

class QtRunLoopTest : public testing::Test {
protected:
    int argc = 0;
    Desktop::QtRunLoop loop{std::make_unique<QCoreApplication>(argc, nullptr)};
    const std::unique_ptr<Timer> watchdog = loop.scheduledTimer(10s, [this] {
        loop.quit();
        FAIL() << "the loop did not end";
    });
};

TEST_F(QtRunLoopTest, QuitsFromAnyThread)
{
    std::jthread other([&] { loop.quit(); });
    loop.run();
    loop.async([&] { other = std::jthread([&] { loop.async([&] { loop.quit(); }); }); });
    loop.run();
}

TEST_F(QtRunLoopTest, QuitsBetweenTwoItemsAndKeepsTheRest)
{
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
    for (const auto& expected : {std::vector<int>{}, {1}, {1, 2}, {1, 2, 3, 4}}) {
        loop.run();
        EXPECT_EQ(ran, expected);
    }
}

TEST_F(QtRunLoopTest, TimerFiresOnceUnlessCancelled)
{
    std::vector<std::string> fired;
    const auto into = [&](const char* name) { return [&fired, name] { fired.emplace_back(name); }; };
    const auto later = loop.scheduledTimer(40ms, into("later"));
    const auto sooner = loop.scheduledTimer(10ms, into("sooner"));
    const auto invalidated = loop.scheduledTimer(5ms, into("invalidated"));
    auto destroyed = loop.scheduledTimer(5ms, into("destroyed"));
    std::unique_ptr<Timer> restarted;
    restarted = loop.scheduledTimer(60ms, [&, name = std::string("restarting, stored on the heap")] {
        restarted = loop.scheduledTimer(5ms, [&] { loop.quit(); }); // Destroys the timer that fires.
        fired.push_back(name.substr(0, 10));
    });
    const auto immediate = loop.scheduledTimer(0ms, into("immediate"));
    EXPECT_TRUE(fired.empty());
    invalidated->invalidate();
    destroyed.reset();
    loop.run();
    EXPECT_EQ(fired, (std::vector<std::string>{"immediate", "sooner", "later", "restarting"}));
}

TEST(GuiApplicationTest, StartsWithoutADisplayOnlyIfNoneIsNeeded)
{
    for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        qunsetenv(variable);
    int argc = 0;
    EXPECT_THROW(Desktop::makeGuiApplication(argc, nullptr, Desktop::Display::needed), Desktop::NoDisplay);
    const auto start = [&](Desktop::Display display) {
        const auto application = Desktop::makeGuiApplication(argc, nullptr, display);
        qFatal("%s %d %d", qPrintable(qEnvironmentVariable("QT_IM_MODULE")), int(Desktop::hasDisplay()),
               int(qEnvironmentVariableIsSet("QT_QPA_PLATFORM")));
    };
    for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        qputenv(variable, ":no such display");
        EXPECT_EXIT(start(Desktop::Display::needed), testing::ExitedWithCode(69),
                    "cannot be opened; check DISPLAY");
        // Tries the display first. Explains only errors of the start.
        EXPECT_DEATH(start(Desktop::Display::optional), "plugin.*none 0 0");
        qunsetenv(variable);
    }
}

} // namespace
