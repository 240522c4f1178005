#include "Tests/Platform/Desktop/ShellTest.h"

#include <QQmlProperty>
#include <QTemporaryFile>

using namespace std::literals;

TEST_F(ShellTest, PanelsBlockAllInputUntilTheyClose)
{
    ask("first");
    ask("second");
    shell.permission()->answer(true);
    shell.openSettings();
    EXPECT_TRUE(events.empty() && !shell.settings()->isOpen()) << "there is no window yet";
    QTest::mouseMove(window, {160, 3});
    EXPECT_TRUE(waitFor([&] { return content("isHovered").toBool(); }));
    attach();
    ASSERT_TRUE(hasFocus("shell.allow"));
    QTest::mouseMove(window, {160, 2});
    EXPECT_TRUE(waitFor([&] { return !content("isHovered").toBool(); }));
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
    ASSERT_TRUE(hasFocus("shell.settings.allowNotifications"));
    tap("shell.settings.allowNotifications");
    QTest::mouseClick(window, Qt::LeftButton, {}, {160, 2});
    EXPECT_TRUE(hasFocus("content"));
    EXPECT_EQ(events, "first refused second allowed on ");
    EXPECT_EQ(content("count"), 0);
    scroll({160, 2});
    QTest::keyClick(window, Qt::Key_A);
    EXPECT_EQ(content("count"), 2);
    for (const auto change : {&QQuickItem::setVisible, &QQuickItem::setEnabled}) {
        item("inner")->forceActiveFocus();
        openSettings();
        std::invoke(change, item("inner"), false);
        QTest::keyClick(window, Qt::Key_Back);
        EXPECT_TRUE(hasFocus("scope")) << "the item with the focus cannot have it any more";
        std::invoke(change, item("inner"), true);
    }
}

TEST_F(ShellTest, KeysMoveTheFocusAndPressOnce)
{
    const auto hasRing = [&](const char* name) {
        return std::ranges::any_of(item(name)->childItems(), [](const QQuickItem* each) {
            return each->isVisible() && QByteArray(each->metaObject()->className()).startsWith("FocusRing");
        });
    };
    attach();
    for (const Qt::Key press : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
        ask("it");
        ask("next");
        ASSERT_TRUE(hasFocus("shell.allow"));
        EXPECT_FALSE(hasRing("shell.allow"));
        const char* focused = "shell.allow";
        for (const Qt::Key key : {Qt::Key_Left, Qt::Key_Right, Qt::Key_Tab, Qt::Key_Tab, Qt::Key_Backtab}) {
            focused = focused == "shell.allow"sv ? "shell.dontAllow" : "shell.allow";
            QTest::keyClick(window, key);
            EXPECT_TRUE(hasFocus(focused) && hasRing(focused)) << key;
        }
        QTest::keySequence(window, {"Esc, Ctrl+S"});
        QTest::simulateEvent(window, true, press, {}, {}, true);
        EXPECT_EQ(events, "") << "a key that is held";
        QTest::keyClick(window, press);
        EXPECT_EQ(events, "it refused ");
        QTest::touchEvent(window, finger.get()).press(0, {160, 2});
        QTest::touchEvent(window, finger.get()).release(0, {160, 2});
        EXPECT_TRUE(waitFor([&] { return !shell.isKeyboardInUse(); }));
        ASSERT_TRUE(hasFocus("shell.allow")) << "each question starts there";
        EXPECT_FALSE(hasRing("shell.allow"));
        tap("shell.allow");
        EXPECT_TRUE(hasFocus("content"));
        EXPECT_EQ(std::exchange(events, ""), "it refused next allowed ");
        EXPECT_EQ(content("shortcutCount"), 0);
    }
    for (const Qt::Key next : {Qt::Key_Tab, Qt::Key_Backtab}) {
        openSettings();
        QTest::keyClick(window, next);
        EXPECT_TRUE(hasFocus("shell.settings.done"));
        QTest::keyClick(window, next);
        EXPECT_TRUE(hasFocus("shell.settings.allowNotifications"));
        QTest::keyClick(window, Qt::Key_Escape);
        EXPECT_TRUE(hasFocus("content"));
    }
}

TEST_F(ShellTest, SettingsShowTheCurrentPreferences)
{
    attach();
    using enum AuthorizationStatus;
    const auto isOn = [&] { return accessible("shell.settings.allowNotifications")->state().checked; };
    const std::pair<AuthorizationStatus, bool> cases[] = {
        {authorized, true}, {notDetermined, false}, {provisional, true}, {denied, false}, {ephemeral, true}};
    shell.openSettings();
    for (const auto& [current, isAllowed] : cases) {
        status = current;
        if (current == denied)
            shell.settings()->close(); // Then it is opened again.
        isAllowed ? shell.preferencesChanged() : shell.openSettings();
        EXPECT_EQ(isOn(), isAllowed);
    }
    // On one line or on its own, the name of the server never becomes smaller.
    for (server = "i"; server.size() < 20; shell.preferencesChanged(), server += "i")
        EXPECT_EQ(QQmlProperty::read(item("shell.settings.notificationServer.value"), "font.pixelSize"), 34);
    EXPECT_TRUE(accessible("shell.settings.allowNotifications")->state().checkable);
    accessible("shell.settings.allowNotifications")->actionInterface()->doAction("Toggle");
    EXPECT_EQ(events, "off ");
    EXPECT_FALSE(isOn());
    accessible("shell.settings.done")->actionInterface()->doAction("Press");
    EXPECT_FALSE(shell.settings()->isOpen());
}

TEST_F(ShellTest, OnlyAPressReleasedInsideCounts)
{
    ask("it");
    attach();
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
    QTest::touchEvent(window, finger.get()).press(0, inside);
    QTest::touchEvent(window, finger.get()).stationary(0).press(1, inside);
    QTest::touchEvent(window, finger.get()).stationary(0).release(1, inside);
    QTest::touchEvent(window, finger.get()).release(0, outside);
    QCoreApplication::processEvents();
    QTest::touchEvent(window, finger.get()).press(0, inside);
    EXPECT_TRUE(waitFor([&] { return button->property("isPressed").toBool(); }));
    QTouchEvent taken(QEvent::TouchCancel, finger.get());
    QCoreApplication::sendEvent(window, &taken);
    EXPECT_TRUE(waitFor([&] { return !button->property("isPressed").toBool(); }));
    EXPECT_EQ(events, "");
    QTest::touchEvent(window, finger.get()).press(0, inside);
    QTest::touchEvent(window, finger.get()).release(0, inside);
    EXPECT_TRUE(waitFor([&] { return events == "it allowed "; })) << events;
}

TEST_F(ShellTest, ClosesPanelsButKeepsQuestionsWhenTheWindowIsReplaced)
{
    const auto attachAndOpenSettings = [&] {
        attach();
        EXPECT_TRUE(showBanner({}));
        EXPECT_TRUE(hasFocus("shell.allow"));
        EXPECT_FALSE(shell.settings()->isOpen());
        shell.openSettings();
    };
    ask("it");
    attachAndOpenSettings();
    QQuickWindow* const first = window;
    makeWindow();
    attachAndOpenSettings();
    int availabilityCount = 0;
    shell.onAvailable([&] { ++availabilityCount; });
    first->hide();
    first->show();
    EXPECT_EQ(availabilityCount, 0);
    EXPECT_EQ(first->findChild<QQuickItem*>("shell.allow"), nullptr);
    QTest::keyClick(first, Qt::Key_A);
    EXPECT_FALSE(shell.isKeyboardInUse());
    delete std::exchange(window, nullptr);
    EXPECT_FALSE(shell.settings()->isOpen() || shell.permission()->isActive());
    makeWindow();
    attachAndOpenSettings();
    ask("more");
    shell.permission()->answer(true);
    EXPECT_FALSE(shell.permission()->isActive()) << "the panel disappears between two questions";
    EXPECT_TRUE(waitFor([&] { return shell.permission()->isActive(); }));
    EXPECT_EQ(std::exchange(events, ""), "it allowed ");
    // The window is closed while the answered panel still moves away.
    shell.setAppearance({.isMotionReduced = false});
    EXPECT_TRUE(waitFor([&] { return dialog() != nullptr && dialog()->opacity() == 1; }));
    shell.permission()->answer(false);
    delete std::exchange(window, nullptr);
    makeWindow();
    attach();
    ask("last");
    EXPECT_TRUE(shell.permission()->isActive());
    EXPECT_EQ(events, "more refused ");
}

TEST_F(ShellTest, BannersAppearOneByOneAndRespondUnlessTheyTimeOut)
{
    attach();
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
        QTest::mouseMove(window, {160, 500});
        EXPECT_EQ(item("shell.banner")->property("offset"), 0.0);
        QTest::mouseMove(window, start - QPoint(0, 12));
        EXPECT_FALSE(content("isHovered").toBool());
        EXPECT_EQ(item("shell.banner")->property("offset"), -12.0);
        outwaitBanner();
        EXPECT_TRUE(shell.banner()->isShown()) << "held";
        item("shell.banner")->ungrabMouse();
        EXPECT_TRUE(waitFor([&] { return item("shell.banner")->property("offset") == 0.0; }));
        QTest::mouseRelease(window, Qt::LeftButton, {}, {160, 500});
    };
    const auto respondOnce = [&] {
        shell.banner()->leave();
        QCoreApplication::processEvents();
        EXPECT_EQ(availabilityCount, 0) << "it is still visible";
        tap("shell.banner");
        shell.banner()->respond();
    };
    const auto dragAndWait = [&] {
        drag();
        drag();
        outwaitBanner();
    };
    const auto swipeUpward = [&] {
        const QPoint start = area("shell.banner").toRect().center();
        QTest::mousePress(window, Qt::LeftButton, {}, start);
        QTest::mouseMove(window, start - QPoint(0, 40));
        QTest::mouseRelease(window, Qt::LeftButton, {}, start - QPoint(0, 40));
    };
    const auto escape = [&] {
        QTest::keyClick(window, Qt::Key_Tab);
        outwaitBanner();
        EXPECT_TRUE(shell.banner()->isShown()) << "has the focus";
        QTest::keyClick(window, Qt::Key_Escape);
    };
    const std::function<void()> ways[] = {respondOnce, dragAndWait, swipeUpward, escape};
    for (int number = 0; number < 4; ++number) {
        EXPECT_TRUE(show(number));
        EXPECT_FALSE(show(99)) << "another banner is visible";
        EXPECT_EQ(shell.banner()->title(), QString::number(number) + " ");
        EXPECT_EQ(shell.banner()->body(), "\n");
        EXPECT_EQ(area("shell.banner").top(), 8);
        const QVariant count = content("count");
        scroll(item("shell.banner")->mapToScene(QPointF(20, 40)));
        EXPECT_EQ(content("count"), count);
        ways[number]();
        ASSERT_TRUE(waitFor([&] { return availabilityCount == number + 1; })) << number;
    }
    EXPECT_TRUE(hasFocus("content") && events == "0 2 3 ") << events;
    EXPECT_EQ(content("shortcutCount"), 0);
    EXPECT_FALSE(showBanner({}, PresentationOptions::list | PresentationOptions::sound));
    for (const auto& [hide, reveal] : {std::pair(&QWindow::showMinimized, &QWindow::showNormal),
                                       std::pair(&QWindow::hide, &QWindow::show)}) {
        std::invoke(hide, *window);
        EXPECT_FALSE(show(99)) << "the window cannot be seen";
        const int before = availabilityCount;
        std::invoke(reveal, *window);
        EXPECT_TRUE(waitFor([&] { return availabilityCount == before + 1; }));
    }
    EXPECT_TRUE(show(4));
    clock.advance(Desktop::NotificationBanner::viewTime - 1ms);
    EXPECT_TRUE(shell.banner()->isShown());
    clock.advance(1ms);
    EXPECT_FALSE(shell.banner()->isShown());
}

/// Two screens side by side, of 800 x 800 and 600 x 500 points, the second with two pixels per point.
int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    QTemporaryFile screens;
    if (!screens.open())
        return 1;
    screens.write(R"({"screens": [
        {"name": "left", "x": 0, "y": 0, "width": 800, "height": 800, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1},
        {"name": "right", "x": 800, "y": 0, "width": 600, "height": 500, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 2}]})");
    screens.close();
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + screens.fileName().toUtf8());
    // The cache of an earlier build may be in the user's home.
    qputenv("QML_DISABLE_DISK_CACHE", "1");
    qInstallMessageHandler(
        [](auto, auto&, auto& it) { EXPECT_FALSE(it.contains(".qml")) << qPrintable(it); });
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    // One for all tests: its end removes the accessibility of Qt Quick.
    const QGuiApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
