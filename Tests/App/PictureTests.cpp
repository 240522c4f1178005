#include "Tests/App/ScreenTest.h"

/// Each change ends in a state that a new window can start with.
TEST_F(ScreenTest, ChangedWindowLooksLikeNewWindow)
{
    const auto visit = [this](const std::vector<Appearance>& appearances) {
        for (const Appearance& each : appearances) {
            settle();
            appearance.set(each);
        }
    };
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"dark", [&] { visit({{.isDark = true}}); }},
        {"dark and back",
         [&] {
             visit({{.isDark = true}, {}});
         }},
        {"larger text and back",
         [&] {
             visit({{.textScale = 2}, {}});
         }},
        {"focus ring shown twice",
         [&] {
             QTest::keyClick(&window, Qt::Key_Tab);
             settle();
             QTest::mouseClick(&window, Qt::LeftButton, {}, {2, 2});
             settle();
             QTest::keyClick(&window, Qt::Key_Backtab, Qt::ShiftModifier);
         }},
        {"larger window and back",
         [&] {
             window.resize(1024, 768);
             settle();
             window.resize(390, 844);
         }},
    };
    for (const Screen screen : {Screen::welcome, Screen::dashboard}) {
        for (const auto& [name, change] : changes) {
            appearance.set({});
            open(screen);
            change();
            settle();
            const QImage changed = window.grabWindow();
            open(screen);
            EXPECT_TRUE(changed == window.grabWindow()) << name << ", screen " << int(screen);
        }
    }
}
