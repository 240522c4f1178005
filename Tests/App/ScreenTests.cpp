#include "Tests/App/ScreenTest.h"

#include <cmath>

enum Scene { welcome, darkWelcome, dashboard, darkDashboard, clearCard, activeCard, disabledCard, detail };
/// A length in points, in windows of 390 by 844 and 1024 by 768; not checked if both are 0.
using Lengths = std::array<double, 2>;
static const struct {
    Scene scene;
    const char* item;
    const char* look;
    Lengths left{}, width{}, height{};
    /// From the bottom of the previous row's item, or from the top of the window.
    Lengths distance{};
} expectedItems[] = {
    {welcome, "welcome.background", "#ffffff", {}, {390, 1024}, {844, 768}},
    {welcome, "welcome.gradient", "#ffffff, to #0dff9500", {}, {390, 1024}, {844, 768}},
    {welcome, "welcome.logo", "shadow #4dff9500, blur 10, down 5", {135, 437}, {120, 150}, {120, 150}},
    {welcome, "Welcome to", "size 22, weight 400, #99000000", {16, 128}, {358, 768}, {}, {20, 20}},
    {welcome, "Quorvane UEM", "size 34, weight 700, #000000", {16, 128}, {358, 768}, {}, {8, 8}},
    {welcome, "welcome.headline", "size 20, weight 400, #99000000", {30, 192}, {330, 640}, {}, {30, 30}},
    {welcome, "welcome.text", "size 17, weight 400, #99000000", {30, 192}, {330, 640}, {}, {16, 16}},
    {welcome, "welcome.getStarted", "", {40, 212}, {310, 600}, {56, 56}, {30, 30}},
    {welcome, "welcome.button",
     "#ff9500, to #ccff9500, Horizontal, radius 16, shadow #4dff9500, blur 8, down 4"},
    {welcome, "Get Started", "size 17, weight 600, #ffffff"},
    {welcome, "arrow.right", "#ffffff", {}, {20, 20}},
    {darkWelcome, "welcome.background", "#ffffff"},
    {darkWelcome, "Quorvane UEM", "size 34, weight 700, #000000"},
    {dashboard, "dashboard.logo", "", {165, 482}, {60, 60}, {60, 60}, {20, 40}},
    {dashboard, "Quorvane UEM", "size 22, weight 700, #000000", {16, 78}, {358, 868}, {}, {12, 12}},
    {dashboard, "dashboard.subtitle", "size 15, weight 400, #99000000", {16, 78}, {358, 868}, {}, {12, 12}},
    {dashboard, "dashboard.warning", "#1aff9500, radius 8", {20, 122}, {350, 780}, {}, {20, 32}},
    {dashboard, "dashboard.card.person.badge.key", "", {20, 122}, {171, 386}, {170, 170}, {20, 32}},
    {dashboard, "dashboard.card.bell.badge", "", {20, 122}, {171, 386}, {170, 170}, {16, 24}},
    {dashboard, "dashboard.card.tv.and.mediabox", "", {199, 516}, {171, 386}, {170, 170}, {-356, -364}},
    {dashboard, "bell.slash", "#99000000", {}, {20, 20}},
    {dashboard, "Notifications are off", "size 15, weight 400, #99000000"},
    {dashboard, "Open Settings", "size 15, weight 400, #0060cc"},
    {dashboard, "panel", "#ffffff, radius 16, border 1.5, #4dff9500, shadow #26000000, blur 12, down 6"},
    {dashboard, "badge", "#1aff9500, round", {76, 285}, {60, 60}, {60, 60}},
    {dashboard, "labels", "", {40, 142}, {131, 346}, {50, 50}, {8, 8}},
    {dashboard, "chevron.right", "#ff9500", {}, {14, 14}, {14, 14}, {8, 8}},
    {dashboard, "person.badge.key", "#ff9500", {}, {26, 26}},
    {dashboard, "Single Sign-On", "size 17, weight 600, #000000"},
    {dashboard, "Secure authentication for enterprise apps", "size 12, weight 400, #99000000"},
    {dashboard, "Tap to view details", "size 11, weight 400, #ff9500"},
    {darkDashboard, "Quorvane UEM", "size 22, weight 700, #ffffff"},
    {darkDashboard, "Open Settings", "size 15, weight 400, #0a84ff"},
    {darkDashboard, "panel", "#000000, radius 16, border 1.5, #4dff9f0a, shadow #26000000, blur 12, down 6"},
    {darkDashboard, "badge", "#1aff9f0a, round"},
    {clearCard, "panel", "#ffffff, radius 16, border 1.5, #a34700, shadow #26000000, blur 12, down 6"},
    {activeCard, "panel", "#ffffff, radius 16, border 1.5, #ff9500, shadow #26000000, blur 12, down 6"},
    {activeCard, "badge", "#ff9500, round"},
    {activeCard, "person.badge.key", "#ffffff", {}, {26, 26}},
    {disabledCard, "panel", "#0d8e8e93, radius 16, border 1, #1a8e8e93"},
    {disabledCard, "badge", "#1a8e8e93, round"},
    {disabledCard, "person.badge.key", "#8e8e93", {}, {26, 26}},
    {disabledCard, "Single Sign-On", "size 17, weight 600, #8e8e93"},
    {disabledCard, "Secure authentication for enterprise apps", "size 12, weight 400, #8e8e93"},
    {disabledCard, "lock.fill", "#8e8e93", {}, {13, 13}},
    {disabledCard, "Coming Soon", "size 11, weight 400, #8e8e93"},
    {detail, "detail.badge", "#1aff9500, round", {145.75, 452}, {97.5, 120}, {97.5, 120}},
    {detail, "detail.title", "size 22, weight 700, #000000", {16, 16}, {358, 992}, {}, {8, 8}},
    {detail, "detail.description", "size 15, weight 400, #99000000", {16, 16}, {358, 992}, {}, {12, 12}},
    {detail, "person.badge.key", "#ff9500", {}, {56, 72}, {56, 72}},
};

TEST_F(ScreenTest, ItemsHaveDesignedLookAndPosition)
{
    const QSize sizes[] = {{390, 844}, {1024, 768}};
    for (int number = 0; number < 16; ++number) {
        const auto scene = Scene(number / 2);
        const auto size = static_cast<std::size_t>(number % 2);
        appearance.set(
            {.isDark = scene == darkWelcome || scene == darkDashboard, .isContrastHigh = scene == clearCard});
        open(scene <= darkWelcome ? Screen::welcome
             : scene == detail    ? Screen::detail
                                  : Screen::dashboard,
             sizes[size]);
        if (scene == activeCard)
            item("dashboard.card.person.badge.key")->setProperty("isActive", true);
        if (scene == disabledCard)
            item("dashboard.card.person.badge.key")->setProperty("isEnabled", false);
        settle();
        EXPECT_EQ(item("scroll.indicator"), nullptr) << "not for the empty space at the end of the dashboard";
        QRectF last;
        for (const auto& [where, name, expectedLook, left, width, height, distance] : expectedItems) {
            if (where != scene)
                continue;
            SCOPED_TRACE(std::string(name) + " in scene " + std::to_string(number));
            const QQuickItem* seen = item(name);
            ASSERT_NE(seen, nullptr);
            EXPECT_EQ(look(seen), expectedLook);
            const QRectF place = area(seen);
            for (const auto& [actual, expected] : {std::pair(place.left(), left),
                                                   {place.width(), width},
                                                   {place.height(), height},
                                                   {place.top() - last.bottom(), distance}})
                // Qt 6.8 aligns what it centers to whole points.
                EXPECT_TRUE(expected == Lengths() || std::abs(actual - expected[size]) <= 0.25) << actual;
            last = place;
        }
    }
}

TEST_F(ScreenTest, LayoutIsRegularFrom700PointsAndContentIsCentered)
{
    for (const int width : {699, 700}) {
        open(Screen::welcome, {width, 800});
        EXPECT_NEAR(area(item("welcome.logo")).top(), 800 - area(item("welcome.button")).bottom() - 50, 1.5);
        EXPECT_LT(item("welcome.text")->property("contentWidth").toReal(), 450) << "of two balanced lines";
        open(Screen::dashboard, {width, 800});
        EXPECT_EQ(area(item("dashboard.openSettings")).right(), area(item("dashboard.warning")).right() - 16);
        EXPECT_EQ(area(item("dashboard.content")).bottom() - area(item("dashboard.card.bell.badge")).bottom(),
                  width < 700 ? 120 : 132);
        EXPECT_NEAR(area(item("badge")).top() - area(item("panel")).top(),
                    area(item("panel")).bottom() - area(item("Tap to view details")).bottom(), 2);
        openCard(Card::Sso);
        // Centered below the bar of 44 points, with a top padding of 3% of the remaining height.
        EXPECT_NEAR(area(item("detail.badge")).top() - 44 - 0.03 * 756,
                    800 - area(item("detail.description")).bottom(), 1.5);
    }
}

TEST_F(ScreenTest, CardsShrinkAndReactWhenPressedUnlessDisabled)
{
    open(Screen::dashboard);
    QQuickItem* card = item("dashboard.card.person.badge.key");
    for (const bool isEnabled : {true, false}) {
        card->setProperty("isEnabled", isEnabled);
        QTest::mousePress(&window, Qt::LeftButton, {}, {100, 300});
        for (const double scale : {1.0, 0.975, 0.95}) {
            EXPECT_DOUBLE_EQ(item("face")->scale(), isEnabled ? scale : 1);
            animations.pass(50);
        }
        QTest::mouseRelease(&window, Qt::LeftButton, {}, {100, 300});
        card->forceActiveFocus();
        QTest::keyClick(&window, Qt::Key_Space);
        QAccessible::queryAccessibleInterface(card)->actionInterface()->doAction("Press");
        EXPECT_EQ(log.takeEntries().size(), isEnabled ? 3 : 0);
        content->dashboard()->goBack();
        settle();
    }
}

TEST_F(ScreenTest, KeysPressButtonsOnceWhenReleased)
{
    open(Screen::dashboard);
    EXPECT_EQ(item("lock.fill"), nullptr);
    const QQuickItem* const card = item("dashboard.card.person.badge.key");
    for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Enter}) {
        EXPECT_TRUE(card->hasActiveFocus());
        QTest::keyPress(&window, key);
        EXPECT_TRUE(card->property("isPressed").toBool());
        for (const bool isPress : {false, true})
            QTest::simulateEvent(&window, isPress, key, {}, {}, true);
        EXPECT_TRUE(log.takeEntries().empty()) << "a key that is held";
        QTest::keyRelease(&window, key);
        EXPECT_FALSE(card->property("isPressed").toBool());
        EXPECT_EQ(log.takeEntries().size(), 1);
        content->dashboard()->goBack();
        settle();
        QTest::keyPress(&window, key);
        QTest::keyClick(&window, Qt::Key_Right);
        QTest::keyRelease(&window, key);
        EXPECT_TRUE(log.takeEntries().empty()) << "the focus has moved";
        QTest::keyClick(&window, Qt::Key_Left);
        EXPECT_FALSE(card->property("isPressed").toBool());
    }
}

TEST_F(ScreenTest, NothingIsAnimatedWithReducedMotion)
{
    appearance.set({.isMotionReduced = true});
    open(Screen::welcome);
    content->welcome()->getStarted();
    animations.pass(0);
    EXPECT_FALSE(isLoaded("welcome.content"));
    settle();
    const QPoint card = area(item("dashboard.card.person.badge.key")).center().toPoint();
    QTest::mousePress(&window, Qt::LeftButton, {}, card);
    EXPECT_EQ(item("face")->scale(), 0.95);
    QTest::mouseRelease(&window, Qt::LeftButton, {}, card);
    animations.pass(0);
    EXPECT_EQ(item("navigation.destination")->x(), 0);
    content->dashboard()->goBack();
    animations.pass(0);
    EXPECT_FALSE(isLoaded("detail.title"));
}

TEST_F(ScreenTest, WelcomeScreenIsShownUntilGetStarted)
{
    for (const Screen screen : {Screen::welcome, Screen::dashboard, Screen::welcome}) {
        open(screen);
        EXPECT_EQ(item("welcome.content") != nullptr, screen == Screen::welcome);
        EXPECT_EQ(item("dashboard.content") != nullptr, screen == Screen::dashboard);
    }
    QObject::connect(content.get(), &ContentView::showWelcomeChanged,
                     [&] { EXPECT_TRUE(domains.standard().boolean("hasLaunchedBefore")); });
    for (int count = 0; count < 2; ++count)
        tap("welcome.getStarted");
    EXPECT_EQ(log.takeText(), "info onboarding Welcome screen - Get Started button tapped\n");
    EXPECT_NE(item("dashboard.content"), nullptr);
    // Fades out with an ease-in-out curve in 500 ms; sampled every 125 ms.
    for (const double opacity : {1.0, 0.871, 0.5, 0.129}) {
        EXPECT_NEAR(item("welcome.background")->parentItem()->opacity(), opacity, 0.001);
        animations.pass(125);
    }
    EXPECT_FALSE(isLoaded("welcome.content"));
    EXPECT_TRUE(item("dashboard.card.person.badge.key")->hasActiveFocus());
}

TEST_F(ScreenTest, ScreenReadersFindRolesNamesAndOrder)
{
    const char* const expected[] = {
        "Graphic Quorvane UEM\nStaticText Welcome to\nHeading Quorvane UEM\nStaticText Your comprehensive U\n"
        "StaticText Secure, manage, and \nButton Get Started\n",
        "Graphic Quorvane UEM\nHeading Quorvane UEM\nStaticText Device Management Da\n"
        "Notification Notifications are of\nButton Open Settings\nButton Single Sign-On: Secure aut\n"
        "Button Remote Casting: Cast conte\nButton Notifications: View and m\n",
        "Button Back\nPane Single Sign-On\nHeading Single Sign-On\nStaticText Secure authenticatio\n"};
    for (const Screen screen : allScreens) {
        open(screen);
        EXPECT_EQ(spoken(QAccessible::queryAccessibleInterface(&window)), expected[int(screen)]);
    }
}

TEST_F(ScreenTest, PermissionStepRegistersOrWarnsUnlessViewIsDestroyed)
{
    using enum AuthorizationStatus;
    const std::tuple<AuthorizationStatus, bool, int> cases[] = {
        {authorized, false, 1}, {provisional, false, 1},  {ephemeral, false, 1},
        {denied, true, 0},      {notDetermined, true, 1}, {notDetermined, false, 0}};
    const auto warns = [&] { return content->dashboard()->notificationPermissionDenied(); };
    const auto calls = [&] {
        return std::tuple(center.requestedOptions != 0, application.registrationCount);
    };
    domains.standard().set("hasLaunchedBefore", true);
    for (const auto& [status, willGrant, registrationCount] : cases) {
        // First runs to the end, then destroys the view one step earlier each time.
        for (int stepCount = 9; stepCount >= 0; --stepCount) {
            center.status = status;
            center.willGrant = willGrant;
            center.requestedOptions = 0;
            application.registrationCount = 0;
            content = std::make_unique<ContentView>(ports);
            content->dashboard()->appear();
            for (int step = 0; step < stepCount; ++step) {
                const auto before = std::tuple(application.registrationCount, warns());
                if (!scheduler.utilityQueue.runNext())
                    scheduler.mainQueue.runNext();
                else
                    EXPECT_EQ(std::tuple(application.registrationCount, warns()), before)
                        << "not on the main queue";
            }
            const auto before = calls();
            if (stepCount == 9) {
                EXPECT_EQ(before, std::tuple(status == notDetermined, registrationCount));
                EXPECT_EQ(warns(), registrationCount == 0);
            }
            content.reset();
            scheduler.runUntilIdle();
            EXPECT_EQ(calls(), before) << stepCount;
        }
    }
}

TEST_F(ScreenTest, CardsOpenTheirScreenAndEveryBackActionClosesIt)
{
    const std::function<void()> backActions[] = {
        [&] { tap("navigation.back"); },
        [&] { QTest::keyClick(&window, Qt::Key_Escape); },
        [&] { QTest::keyClick(&window, Qt::Key_Back); },
        [&] {
            const QVariant mode = item("navigation.destination")->property("presentationMode");
            mode.value<PresentationMode*>()->dismiss();
        },
    };
    // The card, its symbol, title and sentence, the rest of the sentence on the screen, and the log line.
    const std::tuple<Card, QString, QString, QString, QString, std::string> cases[] = {
        {Card::Sso, "person.badge.key", "Single Sign-On", "Secure authentication for enterprise apps",
         ". Sign-in is handled by the Quorvane SSO extension when managed apps request authentication.",
         "info dashboard SSO card tapped\n"},
        {Card::RemoteCasting, "tv.and.mediabox", "Remote Casting", "Cast content to external displays",
         ". Coming soon.", "info remoteCasting Remote Casting card tapped\n"},
        {Card::Notifications, "bell.badge", "Notifications",
         "View and manage notifications from your organization", ". Coming soon.",
         "info notifications Notifications card tapped\n"},
    };
    open(Screen::dashboard);
    for (const auto& goBack : backActions) {
        for (const auto& [card, symbol, title, sentence, more, line] : cases) {
            const QQuickItem* tapped = item("dashboard.card." + symbol);
            EXPECT_TRUE(item(symbol, tapped) && item(title, tapped) && item(sentence, tapped)) << line;
            for (int count = 0; count < 2; ++count)
                tap("dashboard.card." + symbol);
            EXPECT_EQ(log.takeText(), line + line);
            EXPECT_EQ(content->dashboard()->selectedCard(), card);
            animations.pass(175);
            EXPECT_EQ(item("navigation.destination")->x(), 195) << "half of the way";
            settle();
            EXPECT_TRUE(item("navigation.back")->hasActiveFocus());
            EXPECT_TRUE(tapped->property("isActive").toBool());
            EXPECT_TRUE(item(symbol) && item(title) && item(sentence + more) && !item("dashboard.content"));
            goBack();
            EXPECT_EQ(content->dashboard()->selectedCard(), Card::None);
            EXPECT_FALSE(item("navigation.destination")->isEnabled()) << "while it slides out";
            settle();
            EXPECT_FALSE(tapped->property("isActive").toBool());
            EXPECT_TRUE(tapped->hasActiveFocus());
            EXPECT_TRUE(!isLoaded("detail.title") && log.takeEntries().empty());
        }
    }
    const QPoint button = area(item("dashboard.openSettings")).center().toPoint();
    QTest::mouseMove(&window, button);
    EXPECT_EQ(window.cursor().shape(), Qt::PointingHandCursor);
    QTest::mousePress(&window, Qt::LeftButton, {}, button);
    EXPECT_EQ(item("Open Settings")->opacity(), 0.4);
    QTest::mouseRelease(&window, Qt::LeftButton, {}, button);
    EXPECT_EQ(item("Open Settings")->opacity(), 1);
    EXPECT_THAT(application.openedURLs, ElementsAre("app-settings:"));
}

int main(int argc, char** argv)
{
    InitGoogleMock(&argc, argv);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_SCALE_FACTOR", "2");
    // The cache of an earlier build may be in the user's home.
    qputenv("QML_DISABLE_DISK_CACHE", "1");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    const QGuiApplication application(argc, argv);
    qInstallMessageHandler([](auto, auto&, const QString& text) { ADD_FAILURE() << text.toStdString(); });
    return RUN_ALL_TESTS();
}
