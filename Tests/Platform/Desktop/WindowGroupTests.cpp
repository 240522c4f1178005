#include "Platform/Desktop/WindowGroup.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Platform/Desktop/WindowChecks.h"

#include <memory>
#include <utility>

using namespace Platform;
using Array = PropertyList::Array;

namespace {

/// The screens are those of `main()`: 800 x 800 points and, on the right, 600 x 500 points.
class WindowGroupTest : public testing::Test {
protected:
    [[nodiscard]] PropertyList stored() const { return store.object("WindowFrame").value_or("nothing"); }
    /// Returns a window on the screen; its destruction closes it.
    [[nodiscard]] std::unique_ptr<Desktop::WindowGroup> makeWindow()
    {
        auto group = std::make_unique<Desktop::WindowGroup>(content, store, "Title");
        group->load({});
        group->show();
        return group;
    }

    Desktop::WindowContent content{"Quorvane.Shell", "ScrollArea"};
    FakeUserDefaults store;
};

TEST_F(WindowGroupTest, WindowIsRestoredWhereItCanBeSeenAndMoved)
{
    const QRect byDefault(0, 0, 800, 768);
    const std::pair<PropertyList, QRect> cases[] = {
        {Array{100, 50, 400, 500}, {100, 50, 400, 500}},
        {Array{640, 560, 400, 500}, {640, 560, 400, 500}},
        {Array{-240, 560, 400, 500}, {-240, 560, 400, 500}},
        {Array{100, 561, 400, 500}, byDefault},
        {Array{-241, 50, 400, 500}, byDefault},
        {Array{1240, 10, 400, 480}, {1240, 10, 400, 480}},
        // The top edge stays on the screen, since the window is moved by it.
        {Array{100, -200, 400, 500}, {100, 0, 400, 500}},
        // The screen has become smaller.
        {Array{100, 50, 1400, 1000}, {0, 0, 800, 800}},
        {Array{820, 10, 700, 480}, {800, 10, 600, 480}},
        {Array{100, 50, 400}, byDefault},
        {Array{600, 50, -400, 500}, byDefault},
        {Array{100, 50, 70'000, 500}, byDefault},
        {Array{100, 50, "400", 500}, byDefault},
        {"100", byDefault},
    };
    for (const auto& [value, expected] : cases) {
        store.set("WindowFrame", value);
        const auto group = makeWindow();
        const QRect shown = group->window().geometry();
        // The platform plugin makes room for the frame of a window at the edge of the screen.
        const QPoint frame(expected.left() < 2 ? 2 : 0, expected.top() < 2 ? 2 : 0);
        if (expected == byDefault)
            EXPECT_EQ(shown.size(), expected.size()) << value.description();
        else
            EXPECT_EQ(shown, expected.translated(frame)) << value.description();
        EXPECT_EQ(group->window().rootObject()->size(), shown.size());
        EXPECT_EQ(group->window().minimumSize(), QSize(320, 480));
        EXPECT_EQ(group->window().title(), "Title");
    }
}

TEST_F(WindowGroupTest, FrameIsStoredUnlessTheDesktopChoseIt)
{
    // On the second screen, a point has two pixels.
    for (const QRect frame : {QRect(120, 60, 500, 600), QRect(850, 10, 500, 480)}) {
        for (const bool isStored : {false, true}) {
            const auto group = makeWindow();
            EXPECT_EQ(group->window().geometry() == frame, isStored);
            group->window().setGeometry(frame);
            EXPECT_TRUE(waitFor([&] { return group->window().rootObject()->size() == frame.size(); }));
        }
    }
    const PropertyList before = Array{120, 60, 500, 600};
    for (const auto& [change, isStored] :
         {std::pair(&QWindow::showMaximized, false), std::pair(&QWindow::showMinimized, false),
          std::pair(&QWindow::showFullScreen, false), std::pair(&QWindow::hide, true)}) {
        store.set("WindowFrame", before);
        auto group = makeWindow();
        group->window().setGeometry(10, 20, 600, 500);
        std::invoke(change, group->window());
        group.reset();
        EXPECT_EQ(stored() == before, !isStored);
    }
    store.removeObject("WindowFrame");
    std::make_unique<Desktop::WindowGroup>(content, store, "never loaded").reset();
    EXPECT_EQ(stored(), "nothing");
}

TEST_F(WindowGroupTest, RaiseShowsAndActivatesTheWindow)
{
    for (const auto change : {&QWindow::showMinimized, &QWindow::hide, &QWindow::lower}) {
        const auto group = makeWindow();
        std::invoke(change, group->window());
        QWindow other;
        other.show();
        other.requestActivate();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&other));
        group->raise();
        EXPECT_EQ(group->window().visibility(), QWindow::Windowed);
        EXPECT_TRUE(QTest::qWaitForWindowActive(&group->window()));
    }
}

} // namespace
