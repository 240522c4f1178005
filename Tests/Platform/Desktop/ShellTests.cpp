#include "Platform/Desktop/Shell/Shell.h"
#include "Platform/Desktop/WindowGroup.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QTest>
#include <gtest/gtest.h>

#include <functional>
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
        makeWindow();
        shell.setAppearance({.isMotionReduced = true, .textScale = 2});
    }
    void makeWindow()
    {
        engine.loadData(
            "import QtQuick; Window { width: 320; height: 568; visible: true; title: 'app';"
            "Item { objectName: 'content'; anchors.fill: parent; focus: true; property int count: 0;"
            "Accessible.role: Accessible.Button; Accessible.name: 'content';"
            "TapHandler { onTapped: ++count } MouseArea { anchors.fill: parent; acceptedButtons: Qt.NoButton;"
            "onWheel: ++parent.count } Keys.onPressed: ++count } FocusScope { objectName: 'scope' } }");
        window = qobject_cast<QQuickWindow*>(engine.rootObjects().last());
        EXPECT_TRUE(QTest::qWaitForWindowActive(window));
    }
    void ask(const std::string& question)
    {
        shell.requestPermission(
            [=, this](bool isGranted) { events += question + (isGranted ? " allowed " : " refused "); });
    }
    bool showBanner(const UserNotification& notification, unsigned options, std::function<void()> onResponse)
    {
        bool isOnView = false;
        shell.show(
            notification, options, [&](bool isShown) { isOnView = isShown; }, std::move(onResponse));
        return isOnView;
    }
    void scroll(QPointF point)
    {
        QWheelEvent event(point, point, {}, {0, 120}, {}, {}, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(window, &event);
    }
    [[nodiscard]] AuthorizationStatus authorizationStatus() const override { return status; }
    void setAllowed(bool isAllowed) override
    {
        events += isAllowed ? "on " : "off ";
        status = isAllowed ? AuthorizationStatus::authorized : AuthorizationStatus::denied;
    }
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
    AuthorizationStatus status = AuthorizationStatus::notDetermined;
    ManualScheduler clock;
    QQmlApplicationEngine engine;
    QQuickWindow* window = nullptr;
    Desktop::Shell shell{{*this, clock}, "Quorvane MDM"};
};

TEST_F(ShellTest, PanelsBlockAllInputUntilTheyClose)
{
    ask("first");
    ask("second");
    shell.permission()->answer(true);
    shell.openSettings();
    EXPECT_TRUE(events.empty() && !shell.settings()->isOpen()) << "there is no window yet";
    shell.attach(engine, *window);
    ASSERT_TRUE(hasFocus("shell.allow"));
    QTest::keySequence(window, {"Esc, Tab, Tab, Tab"});
    EXPECT_TRUE(shell.isKeyboardInUse());
    QTest::mouseClick(window, Qt::LeftButton, {}, {160, 2});
    EXPECT_FALSE(shell.isKeyboardInUse());
    scroll({160, 2});
    item("content")->forceActiveFocus();
    ASSERT_TRUE(hasFocus("shell.dontAllow"));
    QTest::keyClick(window, Qt::Key_Space);
    ASSERT_TRUE(hasFocus("shell.allow"));
    shell.openSettings();
    tap("shell.allow");
    for (const bool isOn : {false, true, false}) {
        ASSERT_TRUE(hasFocus("shell.settings.allowNotifications"));
        EXPECT_EQ(item("shell.settings.allowNotifications")->property("isOn"), isOn);
        tap("shell.settings.allowNotifications");
    }
    QTest::mouseClick(window, Qt::LeftButton, {}, {160, 2});
    EXPECT_TRUE(hasFocus("content"));
    EXPECT_EQ(events, "first refused second allowed on off on ");
    EXPECT_EQ(item("content")->property("count"), 0);
    scroll({160, 2});
    QTest::keyClick(window, Qt::Key_A);
    EXPECT_EQ(item("content")->property("count"), 2);
    shell.openSettings();
    item("content")->setVisible(false);
    shell.settings()->close();
    EXPECT_TRUE(hasFocus("scope")) << "the item with the focus has disappeared";
}

TEST_F(ShellTest, OnlyAPressReleasedInsideCounts)
{
    ask("it");
    shell.attach(engine, *window);
    ASSERT_TRUE(hasFocus("shell.allow"));
    QQuickItem* const button = item("shell.allow");
    const QPoint inside = button->mapRectToScene(button->boundingRect()).toRect().center();
    const QPoint outside(160, 2);
    QTest::mouseClick(window, Qt::RightButton, {}, inside);
    EXPECT_EQ(button->property("isPressed"), false);
    QTest::mousePress(window, Qt::LeftButton, {}, inside);
    QTest::mouseClick(window, Qt::RightButton, {}, inside);
    QTest::mouseRelease(window, Qt::LeftButton, {}, outside);
    QTest::mousePress(window, Qt::LeftButton, {}, inside);
    button->ungrabMouse();
    QTest::mouseRelease(window, Qt::LeftButton, {}, inside);
    QPointingDevice* const screen = QTest::createTouchDevice();
    QTest::touchEvent(window, screen).press(0, inside);
    QTest::touchEvent(window, screen).stationary(0).press(1, inside);
    QTest::touchEvent(window, screen).stationary(0).release(1, inside);
    QTest::touchEvent(window, screen).release(0, outside);
    QCoreApplication::processEvents();
    EXPECT_EQ(events, "");
    QTest::touchEvent(window, screen).press(0, inside);
    QTest::touchEvent(window, screen).release(0, inside);
    EXPECT_TRUE(QTest::qWaitFor([&] { return events == "it allowed "; })) << events;
}

TEST_F(ShellTest, ClosesPanelsButKeepsQuestionsWhenTheWindowIsReplaced)
{
    const auto attach = [&] {
        shell.attach(engine, *window);
        EXPECT_TRUE(showBanner({}, PresentationOptions::banner, [] {}));
        EXPECT_TRUE(hasFocus("shell.allow"));
        EXPECT_FALSE(shell.settings()->isOpen());
        shell.openSettings();
    };
    ask("it");
    attach();
    QQuickWindow* const first = window;
    makeWindow();
    attach();
    EXPECT_EQ(first->findChild<QQuickItem*>("shell.allow"), nullptr);
    QTest::keyClick(first, Qt::Key_A);
    EXPECT_FALSE(shell.isKeyboardInUse());
    delete std::exchange(window, nullptr);
    EXPECT_FALSE(shell.settings()->isOpen() || shell.permission()->isActive());
    makeWindow();
    attach();
    ask("more");
    shell.permission()->answer(true);
    EXPECT_FALSE(shell.permission()->isActive()) << "the panel disappears between two questions";
    EXPECT_TRUE(QTest::qWaitFor([&] { return shell.permission()->isActive(); }));
    EXPECT_EQ(events, "it allowed ");
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
    EXPECT_EQ(root->text(QAccessible::Name), "app");
    EXPECT_EQ(root->child(0)->text(QAccessible::Description), panel[2]);
    EXPECT_EQ(root->focusChild()->text(QAccessible::Name), "Allow");
    const QPoint middle = root->rect().center();
    EXPECT_EQ(root->childAt(middle.x(), 2), nullptr) << "outside the dialog";
    EXPECT_NE(root->childAt(middle.x(), middle.y()), nullptr);
    QTest::keyClick(window, Qt::Key_Space);
    ASSERT_TRUE(hasFocus("shell.settings.allowNotifications"));
    EXPECT_EQ(accessibleNames(), sheet);
    shell.setAppearance({}); // The sheet is still visible while it moves away.
    QTest::keyClick(window, Qt::Key_Escape);
    EXPECT_TRUE(hasFocus("content"));
    EXPECT_EQ(accessibleNames().value(0), "content");
    EXPECT_TRUE(QTest::qWaitFor([&] { return accessibleNames() == content; }));
}

TEST_F(ShellTest, BannersAppearOneByOneAndRespondUnlessTheyTimeOut)
{
    shell.attach(engine, *window);
    int availabilityCount = 0;
    shell.onAvailable([&] { ++availabilityCount; });
    const auto show = [&](int number) {
        return showBanner({"\u202e" + std::to_string(number) + "\n", "\u202e\n", {}, {}},
                          PresentationOptions::banner,
                          [&, number] { events += std::to_string(number) + " "; });
    };
    const auto drag = [&] {
        const QPoint start = item("shell.banner")->mapToScene(QPointF(20, 40)).toPoint();
        QTest::mousePress(window, Qt::LeftButton, {}, start);
        EXPECT_EQ(item("shell.banner")->property("travel"), 0.0);
        QTest::mouseMove(window, start - QPoint(0, 12));
        EXPECT_EQ(item("shell.banner")->property("offset"), -12.0);
        clock.advance(Desktop::NotificationBanner::viewTime);
        EXPECT_TRUE(shell.banner()->isShown()) << "held";
        QTest::mouseMove(window, {160, 500});
        EXPECT_EQ(item("shell.banner")->property("offset"), 0.0);
        QTest::mouseRelease(window, Qt::LeftButton, {}, {160, 500});
    };
    const std::function<void()> ways[] = {[&] {
                                              shell.banner()->leave();
                                              QCoreApplication::processEvents();
                                              EXPECT_EQ(availabilityCount, 0) << "it is still visible";
                                              tap("shell.banner");
                                          },
                                          [&] {
                                              drag();
                                              drag();
                                              clock.advance(Desktop::NotificationBanner::viewTime);
                                          },
                                          [&] { QTest::keySequence(window, {"Tab, Esc"}); }};
    for (int number = 0; number < 3; ++number) {
        EXPECT_TRUE(show(number));
        EXPECT_FALSE(show(99)) << "another banner is visible";
        EXPECT_EQ(shell.banner()->title(), QString::number(number) + " ");
        EXPECT_EQ(shell.banner()->body(), "\n");
        const QVariant count = item("content")->property("count");
        scroll(item("shell.banner")->mapToScene(QPointF(20, 40)));
        EXPECT_EQ(item("content")->property("count"), count);
        ways[number]();
        ASSERT_TRUE(QTest::qWaitFor([&] { return availabilityCount == number + 1; })) << number;
    }
    EXPECT_TRUE(hasFocus("content") && events == "0 2 ") << events;
    EXPECT_FALSE(showBanner({}, PresentationOptions::list | PresentationOptions::sound, [] {}));
    for (const auto& [hide, reveal] : {std::pair(&QWindow::showMinimized, &QWindow::showNormal),
                                       std::pair(&QWindow::hide, &QWindow::show)}) {
        std::invoke(hide, *window);
        EXPECT_FALSE(show(99)) << "the window cannot be seen";
        const int before = availabilityCount;
        std::invoke(reveal, *window);
        EXPECT_TRUE(QTest::qWaitFor([&] { return availabilityCount == before + 1; }));
    }
    EXPECT_EQ(availabilityCount, 5);
    EXPECT_TRUE(show(4));
}

TEST_F(ShellTest, LimitsAndAnnouncesTheTextScale)
{
    int changeCount = 0;
    QObject::connect(&shell, &Desktop::Shell::appearanceChanged, [&] { ++changeCount; });
    for (const auto& [wanted, scale] : {std::pair(0.5, 1.0), {1.5, 1.5}, {3.0, 2.0}}) {
        shell.setAppearance({.textScale = wanted});
        EXPECT_EQ(shell.textScale(), scale);
    }
    EXPECT_EQ(changeCount, 3);
}

/// The screen has 800 x 800 points.
TEST_F(ShellTest, WindowIsRestoredWhereItCanBeSeenAndStored)
{
    using Array = PropertyList::Array;
    const QRect byDefault(0, 0, 800, 768);
    struct Case {
        PropertyList stored;
        QRect expected;
    };
    const Case cases[] = {
        {Array{100, 50, 400, 500}, {100, 50, 400, 500}},
        {Array{640, 560, 400, 500}, {640, 560, 400, 500}},
        {Array{641, 50, 400, 500}, byDefault},
        {Array{100, 561, 400, 500}, byDefault},
        {Array{100, 50, 400}, byDefault},
        {Array{100, 50, 400, 500, 1}, byDefault},
        {Array{100, 50, 70'000, 500}, byDefault},
        {Array{100, 50, "400", 500}, byDefault},
        {"100", byDefault},
    };
    Desktop::WindowContent content("Quorvane.Shell", "ScrollArea");
    FakeUserDefaults store;
    const auto stored = [&] { return store.object("WindowFrame"); };
    for (const auto& [value, expected] : cases) {
        store.set("WindowFrame", value);
        Desktop::WindowGroup group(content, store, "Title");
        group.load({{"objectName", "given"}});
        group.show();
        const QRect shown = group.window().geometry();
        EXPECT_EQ(expected == byDefault ? QRect({}, shown.size()) : shown, expected) << value.description();
        EXPECT_EQ(group.window().rootObject()->objectName(), "given");
        EXPECT_EQ(group.window().minimumSize(), QSize(320, 480));
        group.window().setGeometry(120, 60, 500, 600);
        EXPECT_TRUE(QTest::qWaitFor([&] { return group.window().rootObject()->height() == 600; }));
    }
    const PropertyList frame = Array{120, 60, 500, 600};
    EXPECT_EQ(stored(), frame);
    for (const auto& [change, isStored] :
         {std::pair(&QWindow::showMaximized, false), std::pair(&QWindow::showMinimized, false),
          std::pair(&QWindow::hide, true)}) {
        store.set("WindowFrame", frame);
        {
            Desktop::WindowGroup group(content, store, "Title");
            group.load({});
            group.show();
            group.window().setGeometry(10, 20, 600, 500);
            std::invoke(change, group.window());
        }
        EXPECT_EQ(stored() == frame, !isStored);
    }
    for (const auto change : {&QWindow::showMinimized, &QWindow::hide}) {
        Desktop::WindowGroup group(content, store, "Title");
        group.load({});
        group.show();
        std::invoke(change, group.window());
        group.raise();
        EXPECT_EQ(group.window().visibility(), QWindow::Windowed);
    }
}
