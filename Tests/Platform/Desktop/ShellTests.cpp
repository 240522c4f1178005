#include "Platform/Desktop/Shell/Shell.h"
#include "Tests/Fakes/ManualScheduler.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QTest>
#include <gtest/gtest.h>

#include <optional>

using namespace Platform;

/// A shell in a small window with large text, above content that has the focus and counts its input events.
class ShellTest : public testing::Test, protected NotificationPreferences {
protected:
    static void SetUpTestSuite()
    {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qInstallMessageHandler(
            [](auto, auto&, auto& it) { EXPECT_FALSE(it.contains(".qml")) << qPrintable(it); });
        application.emplace(argc, nullptr);
    }
    static void TearDownTestSuite() { application.reset(); }
    ShellTest()
    {
        engine.loadData("import QtQuick; Window { width: 320; height: 568; visible: true; Item {"
                        "objectName: 'content'; anchors.fill: parent; focus: true; property int count: 0;"
                        "Accessible.role: Accessible.Button; Accessible.name: 'content';"
                        "TapHandler { onTapped: ++count } Keys.onPressed: ++count } }");
        window = qobject_cast<QQuickWindow*>(engine.rootObjects().value(0));
        EXPECT_TRUE(QTest::qWaitForWindowActive(window));
        shell.setAppearance({.isMotionReduced = true, .textScale = 2});
    }
    [[nodiscard]] AuthorizationStatus authorizationStatus() const override { return {}; }
    void setAllowed(bool isAllowed) override { events += isAllowed ? "switched " : ""; }
    [[nodiscard]] std::string notificationServer() const override { return {}; }
    [[nodiscard]] std::string pushSource() const override { return "UnifiedPush (org.example.Push)"; }
    QQuickItem* item(const char* name) { return window->findChild<QQuickItem*>(name); }
    bool hasFocus(const char* id)
    {
        return QTest::qWaitFor([&] { return item(id)->hasActiveFocus(); });
    }
    void tap(const char* name)
    {
        const QRect area = item(name)->mapRectToScene(item(name)->boundingRect()).toRect();
        EXPECT_TRUE(QRect(0, 0, 320, 568).contains(area) && area.height() >= 44) << name;
        QTest::mouseClick(window, Qt::LeftButton, {}, area.center());
    }
    /// Returns the accessible names below `parent`, by default the window.
    QStringList accessibleNames(QAccessibleInterface* parent = nullptr)
    {
        if (parent == nullptr)
            parent = window->accessibleRoot();
        QStringList names;
        for (int index = 0; index < parent->childCount(); ++index) {
            QAccessibleInterface* const child = parent->child(index);
            EXPECT_EQ(child->parent(), parent);
            EXPECT_EQ(parent->indexOfChild(child), index);
            EXPECT_EQ(child->state().modal, child->role() == QAccessible::Dialog);
            names += child->text(QAccessible::Name);
            names += accessibleNames(child);
        }
        return names;
    }
    static inline int argc = 0;
    // One for all tests: its end removes the accessibility of Qt Quick.
    static inline std::optional<QGuiApplication> application;
    std::string events;
    ManualScheduler clock;
    QQmlApplicationEngine engine;
    QQuickWindow* window = nullptr;
    Desktop::Shell shell{{*this, clock}, "Quorvane MDM"};
};

TEST_F(ShellTest, PanelsBlockAllInputUntilTheyClose)
{
    for (int question = 0; question < 2; ++question)
        shell.requestPermission([&](bool isGranted) { events += isGranted ? "allowed " : "refused "; });
    shell.attach(engine, *window);
    ASSERT_TRUE(hasFocus("shell.allow"));
    QTest::mouseClick(window, Qt::LeftButton, {}, {160, 2});
    QTest::keySequence(window, {"Esc, Tab, Tab, Tab"});
    item("content")->forceActiveFocus();
    ASSERT_TRUE(hasFocus("shell.dontAllow"));
    QTest::keyClick(window, Qt::Key_Space);
    ASSERT_TRUE(hasFocus("shell.allow"));
    shell.openSettings();
    tap("shell.allow");
    ASSERT_TRUE(hasFocus("shell.settings.allowNotifications"));
    tap("shell.settings.allowNotifications");
    QTest::mouseClick(window, Qt::LeftButton, {}, {160, 2});
    EXPECT_TRUE(hasFocus("content") && events == "refused allowed switched ") << events;
    EXPECT_EQ(item("content")->property("count"), 0);
}

TEST_F(ShellTest, AssistiveTechnologyFindsOnlyTheOpenDialog)
{
    const QStringList content{"content"};
    const QString question = "\u201cQuorvane MDM\u201d Would Like to Send You Notifications";
    const QStringList panel{question, question, "Notifications may include alerts, sounds, and icon badges.",
                            "Don\u2019t Allow", "Allow"};
    const QStringList sheet{"Quorvane MDM",
                            "Quorvane MDM",
                            "Done",
                            "Allow Notifications",
                            "Shown by: In this window",
                            "Delivered by: UnifiedPush (org.example.Push)"};
    shell.attach(engine, *window);
    EXPECT_EQ(accessibleNames(), content);
    shell.openSettings();
    ASSERT_TRUE(hasFocus("shell.settings.allowNotifications"));
    EXPECT_EQ(accessibleNames(), sheet);
    shell.requestPermission([](bool) {});
    ASSERT_TRUE(hasFocus("shell.allow"));
    EXPECT_EQ(accessibleNames(), panel);
    EXPECT_FALSE(item("content")->isEnabled());
    const QAccessibleInterface* const root = window->accessibleRoot();
    EXPECT_EQ(root->focusChild()->text(QAccessible::Name), "Allow");
    const QPoint middle = root->rect().center();
    EXPECT_EQ(root->childAt(middle.x(), 2), nullptr) << "outside the dialog";
    EXPECT_NE(root->childAt(middle.x(), middle.y()), nullptr);
    QTest::keyClick(window, Qt::Key_Space);
    ASSERT_TRUE(hasFocus("shell.settings.allowNotifications"));
    EXPECT_EQ(accessibleNames(), sheet);
    QTest::keyClick(window, Qt::Key_Escape);
    EXPECT_TRUE(hasFocus("content"));
    EXPECT_EQ(accessibleNames(), content);
}

TEST_F(ShellTest, BannersAppearOneByOneAndRespondUnlessTheyTimeOut)
{
    shell.attach(engine, *window);
    int availabilityCount = 0;
    shell.onAvailable([&] { ++availabilityCount; });
    const auto show = [&](int number) {
        bool isOnView = false;
        shell.show(
            {"\u202e" + std::to_string(number), {}, {}, {}}, PresentationOptions::banner,
            [&](bool isShown) { isOnView = isShown; },
            [&, number] { events += std::to_string(number) + " "; });
        return isOnView;
    };
    const std::function<void()> ways[] = {[&] { tap("shell.banner"); },
                                          [&] { clock.advance(Desktop::NotificationBanner::viewTime); },
                                          [&] { QTest::keySequence(window, {"Tab, Esc"}); }};
    for (int number = 0; number < 3; ++number) {
        EXPECT_TRUE(show(number));
        EXPECT_FALSE(show(99)) << "another banner is visible";
        EXPECT_EQ(shell.banner()->title(), QString::number(number));
        ways[number]();
        ASSERT_TRUE(QTest::qWaitFor([&] { return availabilityCount == number + 1; })) << number;
    }
    EXPECT_TRUE(hasFocus("content") && events == "0 2 ") << events;

    window->showMinimized();
    EXPECT_FALSE(show(99)) << "the window is minimized";
    window->showNormal();
    EXPECT_TRUE(QTest::qWaitFor([&] { return availabilityCount == 4; }));
    EXPECT_TRUE(show(4));
}
