#include "Tests/App/ScreenTest.h"

/// Each change ends in a state that a new window can start with.
TEST_F(ScreenTest, ChangedWindowLooksLikeNewWindow)
{
    using Steps = std::vector<std::function<void()>>;
    const auto set = [this](Appearance value) { return [=, this] { appearance.set(value); }; };
    const auto hide = [this] { window.contentItem()->setVisible(false); };
    const auto unhide = [this] { window.contentItem()->setVisible(true); };
    const auto resize = [this](int width, int height) { return [=, this] { window.resize(width, height); }; };
    const auto click = [this] { QTest::mouseClick(&window, Qt::LeftButton, {}, {2, 2}); };
    const auto press = [this](Qt::Key key, Qt::KeyboardModifiers modifiers) {
        return [=, this] { QTest::keyClick(&window, key, modifiers); };
    };
    const std::pair<const char*, Steps> changes[] = {
        {"dark", {set({.isDark = true})}},
        {"dark and, while hidden, back", {set({.isDark = true}), hide, set({}), unhide}},
        {"larger text and back", {set({.textScale = 2}), set({})}},
        {"focus ring shown twice",
         {press(Qt::Key_Tab, {}), click, press(Qt::Key_Backtab, Qt::ShiftModifier)}},
        {"larger window and back", {resize(1024, 768), resize(390, 844)}},
    };
    for (const Screen screen : {Screen::welcome, Screen::dashboard}) {
        for (const auto& [name, steps] : changes) {
            appearance.set({});
            open(screen);
            for (const auto& step : steps) {
                step();
                settle();
            }
            const QImage changed = window.grabWindow();
            open(screen);
            EXPECT_TRUE(changed == window.grabWindow()) << name << ", screen " << int(screen);
        }
    }
}
