#include "App/AppearanceModel.h"
#include "App/ContentView.h"
#include "Core/Logger.h"
#include "PushNotifications/NotificationPermissionManager.h"
#include "Tests/Fakes/FakeApplication.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/FakeUserNotificationCenter.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <QAccessible>
#include <QAnimationDriver>
#include <QQmlEngine>
#include <QQmlExpression>
#include <QQuickItem>
#include <QQuickView>
#include <QTest>
#include <gmock/gmock.h>

using namespace App;
using namespace Platform;
using namespace testing;
using Card = MainDashboardView::CardType;

/// Lets animations pass when the test says so.
class ManualAnimations final : public QAnimationDriver {
public:
    ManualAnimations() { install(); }
    void pass(qint64 milliseconds)
    {
        QCoreApplication::processEvents(); // They start and end on later turns.
        m_elapsed = isRunning() ? m_elapsed + milliseconds : 0;
        if (isRunning())
            advance();
        QCoreApplication::processEvents();
    }
    [[nodiscard]] qint64 elapsed() const override { return m_elapsed; }

private:
    qint64 m_elapsed = 0;
};

static QList<QQuickItem*> itemsBelow(const QQuickItem* parent)
{
    QList<QQuickItem*> items = parent->childItems();
    for (const QQuickItem* child : parent->childItems())
        items += itemsBelow(child);
    return items;
}

/// What expressions in the document of `item` come to. They may use its place in the window, and the look of
/// an item: the panels, shadows, symbols and words on view in it, or their colours alone.
static std::string values(QQuickItem* item, const QString& expressions)
{
    static const QString prelude = R"((() => {
        const at = mapToItem(null, 0, 0);
        function look(item) {
            const {text, font, color, pointSize, radius, borderWidth, borderColor, endColor, style} = item;
            const own = pointSize ? [item.name, pointSize, color]
                : font ? [text, font.pixelSize, font.weight, color]
                : style ? [style.color, style.blurRadius, style.offset.y]
                : borderWidth ? [color, radius, borderWidth, borderColor]
                : borderColor ? [color, radius].concat(endColor.valid ? endColor : []) : [];
            return item.visible ? own.concat(...Array.from(item.children).map(look)) : [];
        }
        const colors = item => String(look(item)).match(/#\w+/g);
        return `${[)";
    if (item == nullptr)
        return "missing";
    QQmlExpression list(qmlContext(item), item, prelude + expressions + "]}`; })()");
    return list.evaluate().toString().toStdString();
}

/// The real screens in a window, on a device and for a user that the test makes up.
class ScreenTest : public Test {
protected:
    ~ScreenTest() override
    {
        window.setSource({});
        window.releaseResources();
        content.reset();
        // Nobody waits any longer.
        scheduler.runUntilIdle();
    }

    void open(std::optional<bool> hasLaunchedBefore, QSize size = {390, 844})
    {
        if (hasLaunchedBefore)
            domains.standard().set("hasLaunchedBefore", *hasLaunchedBefore);
        center.status = AuthorizationStatus::denied;
        window.setSource({});
        content = std::make_unique<ContentView>(ports);
        window.engine()->addImportPath("qrc:/qt/qml");
        window.setInitialProperties(
            {{"view", QVariant::fromValue(content.get())}, {"appearance", QVariant::fromValue(&appearance)}});
        window.setResizeMode(QQuickView::SizeRootObjectToView);
        window.setSource(QUrl("qrc:/qt/qml/Quorvane/App/ContentView.qml"));
        window.resize(size);
        window.show();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
        settle();
    }
    /// Lets pass what is under way, and puts everything in its place.
    void settle()
    {
        scheduler.runUntilIdle();
        for (int turn = 0; turn < 4; ++turn)
            animations.pass(250);
        window.grabWindow();
    }
    [[nodiscard]] QQuickItem* item(const QString& name) const
    {
        const auto items = itemsBelow(window.contentItem());
        const auto found = std::ranges::find(items, name, &QQuickItem::objectName);
        return found != items.end() ? *found : nullptr;
    }
    void tap(const QString& name)
    {
        const QQuickItem* target = item(name);
        ASSERT_TRUE(target != nullptr) << qPrintable(name);
        const QPointF point = target->mapToScene(target->boundingRect().center());
        QTest::mouseClick(&window, Qt::LeftButton, {}, point.toPoint());
    }

    ManualAnimations animations;
    ManualScheduler scheduler;
    RecordingUnifiedLog log;
    Core::Logger logger{std::make_unique<Core::OSLogSink>(log), "com.example"};
    NotificationCenter notifications;
    FakeUserDefaultsDomains domains{notifications, scheduler.mainQueue};
    FakeUserNotificationCenter center{scheduler.mainQueue};
    PushNotifications::NotificationPermissionManager manager{center, logger};
    FakeApplication application;
    const ContentView::Ports ports{logger, domains.standard(), manager, application, scheduler.mainQueue};
    AppearanceModel appearance;
    std::unique_ptr<ContentView> content;
    QQuickView window;
};

/// Item, expressions, and what they come to: at every width, at compact and regular ones, or at each of four.
static const QString looks = R"(
welcome.ground | look(root).slice(0, 5) | #ffffff,0,#ffffff,0,#0dff9500
welcome.content | at.x, width | 0,390 | 0,699 | 0,700 | 112,800
welcome.content | spacing, Math.abs(2 * y + height - parent.height) < 2 | 30,true
welcome.logo | width, height, parent.spacing | 120,120,20 | 150,150,20
welcome.logo | shadow.color, shadow.blurRadius, shadow.offset.y, look(parent) | #4dff9500,10,5,Welcome to,\
22,400,#99000000,Quorvane UEM,34,700,#000000
welcome.headline | leftPadding, rightPadding, parent.spacing | 30,30,16 | 80,80,16
welcome.headline | look(this) | Your comprehensive Unified Endpoint Management solution,20,400,#99000000
welcome.text | leftPadding, rightPadding | 30,30 | 80,80
welcome.text | look(this) | Secure, manage, and stay in control of your work device with built-in enterprise \
protection.,17,400,#99000000
welcome.getStarted | at.x, width, height | 40,310,56 | 40,619,56 | 100,500,56 | 212,600,56
welcome.getStarted | parent.height - y - height, look(this) | 50,#ff9500,16,#ccff9500,#4dff9500,8,4,\
Get Started,17,600,#ffffff,arrow.right,17,#ffffff
dashboard.content | at.x, width, spacing | 0,390,20 | 0,699,20 | 0,700,32 | 62,900,32
dashboard.header | topPadding, spacing | 20,12 | 40,12
dashboard.header | look(this) | Quorvane UEM,22,700,#000000,Device Management Dashboard,15,400,#99000000
dashboard.logo | at.x, y, width | 165,20,60 | 320,20,60 | 320,40,60 | 482,40,60
dashboard.warning | at.x, width | 20,350 | 20,659 | 60,580 | 122,780
dashboard.warning | look(this) | #1aff9500,8,bell.slash,17,#99000000,Notifications are off,15,400,#99000000,\
Open Settings,15,400,#007aff
dashboard.grid | parent.height - y - height | 120 | 132
dashboard.card.person.badge.key | at.x, y, width | 20,0,171 | 20,0,325.5 | 60,0,286 | 122,0,386
dashboard.card.tv.and.mediabox | at.x, y, width | 199,0,171 | 353.5,0,325.5 | 354,0,286 | 516,0,386
dashboard.card.bell.badge | at.x, y, height | 20,186,170 | 20,186,170 | 60,194,170 | 122,194,170
dashboard.card.person.badge.key | title, description | Single Sign-On,Secure authentication for enterprise \
apps
dashboard.card.tv.and.mediabox | title, description | Remote Casting,Cast content to external displays
dashboard.card.bell.badge | look(this) | #ffffff,16,1.5,#4dff9500,#26000000,12,6,#1aff9500,30,bell.badge,22,\
#ff9500,Notifications,17,600,#000000,View and manage notifications from your organization,12,400,#99000000,\
Tap to view details,11,400,#ff9500,chevron.right,12,#ff9500
dashboard.card.bell.badge | isActive = true, colors(this) | true,#ffffff,#ff9500,#26000000,#ff9500,#ffffff,\
#000000,#99000000,#ff9500,#ff9500
dashboard.card.bell.badge | Theme.isDark = true, colors(this) | true,#000000,#ff9f0a,#26000000,#ff9f0a,\
#ffffff,#ffffff,#99ffffff,#ff9f0a,#ff9f0a
dashboard.card.bell.badge | enabled = false, colors(this) | false,#0d8e8e93,#1a8e8e93,#00000000,#1a8e8e93,\
#8e8e93,#8e8e93,#8e8e93,#8e8e93,#8e8e93,#8e8e93
dashboard.card.bell.badge | Theme.isDark = false, look(this) | false,#0d8e8e93,16,1,#1a8e8e93,#00000000,0,0,\
#1a8e8e93,30,bell.badge,22,#8e8e93,Notifications,17,600,#8e8e93,View and manage notifications from your \
organization,12,400,#8e8e93,lock.fill,11,#8e8e93,Coming Soon,11,400,#8e8e93,chevron.right,12,#8e8e93
detail.stack | topPadding, Math.abs(2 * y + height - parent.height) < 2 | 24,true | 21.72,true
detail.badge | width, height | 97.5,97.5 | 120,120 | 120,120 | 120,120
detail.badge | color, radius * 2 === width | #1aff9500,true
detail.symbol | pointSize, color | 46.8,#ff9500 | 60,#ff9500 | 60,#ff9500 | 60,#ff9500
detail.title | font.pixelSize, font.weight, color | 22,700,#000000
detail.description | leftPadding, parent.spacing, font.pixelSize, color | 16,12,15,#99000000)";

TEST_F(ScreenTest, LooksFollowTheWidth)
{
    const QSize sizes[] = {{390, 844}, {699, 844}, {700, 768}, {1024, 768}};
    const QStringList rows = QString(looks).remove("\\\n").split('\n');
    for (int number = 0; number < 12; ++number) {
        open(number >= 4, sizes[number % 4]);
        if (number >= 8)
            content->dashboard()->tapCard(Card::Sso);
        settle();
        for (const QString& row : rows.filter(QStringList{"welcome.", "dashboard.", "detail."}[number / 4])) {
            const QStringList cells = row.split(" | ");
            const QString& expected = cells[2 + number % 4 * (cells.size() - 2) / 4];
            EXPECT_EQ(values(item(cells[0]), cells[1]), qPrintable(expected)) << qPrintable(row);
        }
    }
}

TEST_F(ScreenTest, CardsGiveWayUnderTheFingerUnlessTheyAreDisabled)
{
    open(true);
    QQuickItem* card = item("dashboard.card.person.badge.key");
    for (const bool isEnabled : {true, false}) {
        card->setEnabled(isEnabled);
        QTest::mousePress(&window, Qt::LeftButton, {}, {100, 300});
        for (const char* scale : {"1", "0.975", "0.95"}) {
            EXPECT_EQ(values(item("face"), "scale"), isEnabled ? scale : "1");
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

TEST_F(ScreenTest, WelcomeIsShownUntilGetStarted)
{
    for (const auto hasLaunchedBefore : {std::optional<bool>(), std::optional(true), std::optional(false)}) {
        open(hasLaunchedBefore);
        EXPECT_EQ(item("welcome.content") == nullptr, hasLaunchedBefore == true);
        EXPECT_EQ(item("dashboard.content") != nullptr, hasLaunchedBefore == true);
    }
    QObject::connect(content.get(), &ContentView::showWelcomeChanged,
                     [&] { EXPECT_TRUE(domains.standard().boolean("hasLaunchedBefore")); });
    for (int count = 0; count < 2; ++count)
        tap("welcome.getStarted");
    const char* text = "Welcome screen - Get Started button tapped";
    EXPECT_THAT(log.takeEntries(), ElementsAre(FieldsAre(_, "onboarding", LogType::info, _, text)));
    EXPECT_EQ(values(item("dashboard.content"), "visible"), "true");
    EXPECT_TRUE(domains.standard().boolean("hasLaunchedBefore"));
    // A quarter of half a second each, gently at both ends.
    for (const char* opacity : {"1.000", "0.871", "0.500", "0.129"}) {
        EXPECT_EQ(values(item("welcome.content"), "root.opacity.toFixed(3)"), opacity);
        animations.pass(125);
    }
    EXPECT_EQ(item("welcome.content"), nullptr);
}

TEST_F(ScreenTest, PermissionStepRegistersOrWarnsUnlessTheViewHasGone)
{
    using enum AuthorizationStatus;
    const std::tuple<AuthorizationStatus, bool, int> cases[] = {
        {authorized, false, 1}, {provisional, false, 1},  {ephemeral, false, 1},
        {denied, true, 0},      {notDetermined, true, 1}, {notDetermined, false, 0}};
    const auto effects = [&] { return std::pair(center.askedOptions != 0, application.registrationCount); };
    domains.standard().set("hasLaunchedBefore", true);
    for (const auto& [status, willGrant, registrationCount] : cases) {
        // At first to the end, then with the view gone after fewer and fewer steps.
        for (int stepCount = 9; stepCount >= 0; --stepCount) {
            center.status = status;
            center.willGrant = willGrant;
            center.askedOptions = 0;
            application.registrationCount = 0;
            content = std::make_unique<ContentView>(ports);
            content->dashboard()->appear();
            for (int step = 0; step < stepCount; ++step)
                scheduler.mainQueue.runNext();
            if (stepCount == 9) {
                EXPECT_EQ(effects(), std::pair(status == notDetermined, registrationCount));
                EXPECT_EQ(content->dashboard()->notificationPermissionDenied(), registrationCount == 0);
            }
            const auto before = effects();
            content.reset();
            scheduler.runUntilIdle();
            EXPECT_EQ(effects(), before) << stepCount;
        }
    }
}

TEST_F(ScreenTest, CardsLeadToTheirScreenAndEveryWayBackLeavesIt)
{
    const std::function<void()> ways[] = {
        [&] { tap("navigation.back"); },
        [&] { QTest::keyClick(&window, Qt::Key_Escape); },
        [&] { values(item("detail.stack"), "root.presentationMode.dismiss()"); },
        [&] {
            QTest::mousePress(&window, Qt::LeftButton, {}, {5, 400});
            for (const int x : {60, 150, 240})
                QTest::mouseMove(&window, {x, 400});
            QTest::mouseRelease(&window, Qt::LeftButton, {}, {240, 400});
        },
    };
    const std::tuple<Card, const char*, const char*, const char*, const char*> cases[] = {
        {Card::Sso, "dashboard.card.person.badge.key", "dashboard", "SSO card tapped",
         "person.badge.key,Single Sign-On,Secure authentication for enterprise apps. Sign-in is handled by "
         "the Quorvane SSO extension when managed apps request authentication."},
        {Card::RemoteCasting, "dashboard.card.tv.and.mediabox", "remoteCasting", "Remote Casting card tapped",
         "tv.and.mediabox,Remote Casting,Cast content to external displays. Coming soon."},
        {Card::Notifications, "dashboard.card.bell.badge", "notifications", "Notifications card tapped",
         "bell.badge,Notifications,View and manage notifications from your organization. Coming soon."},
    };
    open(true);
    for (const auto& goBack : ways) {
        for (const auto& [card, name, category, text, detail] : cases) {
            for (int count = 0; count < 2; ++count)
                tap(name);
            const auto line = FieldsAre(_, category, LogType::info, _, text);
            EXPECT_THAT(log.takeEntries(), ElementsAre(line, line));
            EXPECT_EQ(content->dashboard()->selectedCard(), card);
            settle();
            EXPECT_EQ(values(item(name), "isActive"), "true");
            EXPECT_EQ(values(item("detail.content"), "[2, 5, 9].map(part => look(this)[part])"), detail);
            goBack();
            EXPECT_EQ(content->dashboard()->selectedCard(), Card::None);
            settle();
            EXPECT_EQ(values(item(name), "isActive"), "false");
            EXPECT_TRUE(item("detail.content") == nullptr && log.takeEntries().empty());
        }
    }
    tap("dashboard.openSettings");
    EXPECT_THAT(application.openedAddresses, ElementsAre("app-settings:"));
}

TEST_F(ScreenTest, LettersStayApartHoweverLargeAndButtonsAreLargeAndNamed)
{
    for (int number = 0; number < 20; ++number) {
        const QSize size = number < 10 ? QSize(320, 568) : QSize(390, 844);
        const int screen = number / 2 % 5;
        appearance.set({.textScale = number % 2 + 1.0});
        open(screen > 0, size);
        if (screen > 1)
            content->dashboard()->tapCard(Card(screen - 1));
        settle();
        std::vector<QRectF> texts;
        for (QQuickItem* each : itemsBelow(window.contentItem())) {
            const auto* accessible = QAccessible::queryAccessibleInterface(each);
            if (accessible != nullptr && accessible->role() == QAccessible::Button) {
                EXPECT_NE(accessible->text(QAccessible::Name), "");
                EXPECT_GE(std::min(each->width(), each->height()), 44) << qPrintable(each->objectName());
            }
            if (!each->inherits("QQuickText") || !each->isVisible())
                continue;
            QRectF area = each->mapRectToScene(each->boundingRect());
            qreal reachableBottom = size.height();
            for (const QQuickItem* above = each; above != nullptr; above = above->parentItem()) {
                if (above->inherits("QQuickFlickable"))
                    reachableBottom = above->mapToScene({0, above->property("contentHeight").toReal()}).y();
                else if (above->clip())
                    area &= above->mapRectToScene(above->clipRect());
            }
            const auto overlaps = [&](const QRectF& other) { return other.intersects(area); };
            EXPECT_TRUE(area.left() >= 0 && area.right() <= size.width()) << values(each, "text") << number;
            EXPECT_LE(area.bottom(), reachableBottom) << values(each, "text") << number;
            EXPECT_TRUE(std::ranges::none_of(texts, overlaps)) << values(each, "text") << number;
            texts.push_back(area);
        }
    }
}

int main(int argc, char** argv)
{
    InitGoogleMock(&argc, argv);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_SCALE_FACTOR", "2");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    const QGuiApplication application(argc, argv);
    qInstallMessageHandler([](auto, auto&, const QString& text) { ADD_FAILURE() << text.toStdString(); });
    return RUN_ALL_TESTS();
}
