#include "Tests/App/ScreenTest.h"

/// Changes that end in the state in which they began, or in a state that a new window can start with.
static const struct {
    const char* name;
    void (*change)(QQuickWindow& window, AppearanceModel& appearance, const std::function<void()>& settle);
} changes[] = {
    {"dark",
     [](QQuickWindow& /*window*/, AppearanceModel& appearance, const std::function<void()>& settle) {
         settle();
         appearance.set({.isDark = true});
     }},
    {"dark and back",
     [](QQuickWindow& /*window*/, AppearanceModel& appearance, const std::function<void()>& settle) {
         for (const bool isDark : {true, false}) {
             settle();
             appearance.set({.isDark = isDark});
         }
     }},
    {"larger text and back",
     [](QQuickWindow& /*window*/, AppearanceModel& appearance, const std::function<void()>& settle) {
         for (const double textScale : {2.0, 1.0}) {
             settle();
             appearance.set({.textScale = textScale});
         }
     }},
    {"focus ring shown twice",
     [](QQuickWindow& window, AppearanceModel& /*appearance*/, const std::function<void()>& settle) {
         QTest::keyClick(&window, Qt::Key_Tab);
         settle();
         QTest::mouseClick(&window, Qt::LeftButton, {}, {2, 2});
         settle();
         QTest::keyClick(&window, Qt::Key_Backtab, Qt::ShiftModifier);
     }},
    {"larger window and back",
     [](QQuickWindow& window, AppearanceModel& /*appearance*/, const std::function<void()>& settle) {
         for (const QSize size : {QSize(1024, 768), QSize(390, 844)}) {
             window.resize(size);
             settle();
         }
     }},
};

TEST_F(ScreenTest, ChangedWindowLooksLikeNewWindow)
{
    for (const bool hasLaunchedBefore : {false, true}) {
        for (const auto& [name, change] : changes) {
            appearance.set({});
            open(hasLaunchedBefore);
            change(window, appearance, [this] { settle(); });
            settle();
            const QImage changed = window.grabWindow();
            open(hasLaunchedBefore);
            EXPECT_TRUE(changed == window.grabWindow()) << name << ", dashboard: " << hasLaunchedBefore;
        }
    }
}
