#include "Tests/Platform/Desktop/ShellTest.h"

#include <QLineF>
#include <QPixmap>

TEST_F(ShellTest, AssistiveTechnologyFindsOnlyTheOpenDialog)
{
    const auto all = [&] { return spoken(window->accessibleRoot()); };
    const std::string content = "Button content\n";
    const std::string panel = "Dialog \u201cQuorvane MDM\u201d Would: Notificati\n"
                              "Heading \u201cQuorvane MDM\u201d Would\nStaticText Notifications may in\n"
                              "Button Don\u2019t Allow\nButton Allow\n";
    const std::string sheet = "Dialog Quorvane MDM\nHeading Quorvane MDM\nButton Done\n"
                              "CheckBox Allow Notifications\nStaticText Shown by: In this wi\n"
                              "StaticText Delivered by: Unifie\n";
    attach();
    EXPECT_EQ(all(), content);
    openSettings();
    EXPECT_EQ(all(), sheet);
    shell.requestPermission([](bool) {});
    ASSERT_TRUE(hasFocus("shell.allow"));
    EXPECT_EQ(all(), panel);
    int focusCount = 0;
    QObject::connect(window, &QQuickWindow::activeFocusItemChanged, [&] { ++focusCount; });
    for (int turn = 0; turn < 20; ++turn)
        QCoreApplication::processEvents();
    EXPECT_EQ(focusCount, 0) << "the two dialogs compete for the focus";
    EXPECT_FALSE(item("content")->isEnabled());
    const QAccessibleInterface* const root = window->accessibleRoot();
    EXPECT_EQ(root->text(QAccessible::Name), "app");
    EXPECT_EQ(root->focusChild()->text(QAccessible::Name), "Allow");
    EXPECT_TRUE(root->state().active && !root->state().invisible);
    window->setPosition(50, 60);
    EXPECT_TRUE(waitFor([&] { return window->position() == QPoint(50, 60); }));
    EXPECT_EQ(root->rect(), QRect(50, 60, 320, 568));
    EXPECT_EQ(root->child(0)->rect().center(), root->rect().center());
    EXPECT_EQ(root->childAt(root->rect().center().x(), 2), nullptr) << "outside the dialog";
    QTest::keyClick(window, Qt::Key_Space);
    ASSERT_TRUE(hasFocus("shell.settings.allowNotifications"));
    EXPECT_EQ(all(), sheet);
    shell.setAppearance({}); // The sheet is still visible while it moves away.
    QTest::keyClick(window, Qt::Key_Escape);
    EXPECT_TRUE(hasFocus("content"));
    EXPECT_EQ(all().substr(0, content.size()), content);
    EXPECT_TRUE(waitFor([&] { return all() == content; }));
}

TEST_F(ShellTest, DialogsAndBannersFitOrScrollInEveryWindowAndMoveUnlessMotionIsReduced)
{
    server = "A notification server 1.2.3";
    attach();
    for (const auto& [wanted, scale] : {std::pair(0.5, 1.0), {1.5, 1.5}, {3.0, 2.0}}) {
        shell.setAppearance({.textScale = wanted});
        EXPECT_EQ(shell.textScale(), scale);
    }
    const auto expectKeysScroll = [&] {
        const auto items = itemsBelow(dialog());
        const QQuickItem* const list = *std::ranges::find_if(
            items, [](const QQuickItem* each) { return each->inherits("QQuickFlickable"); });
        const qreal end = std::max(0.0, list->property("contentHeight").toReal() - list->height());
        EXPECT_TRUE(end > 44 || shell.textScale() == 1 || window->height() > 300);
        for (const auto& [key, count, position] : {std::tuple(Qt::Key_Down, 1, std::min(44.0, end)),
                                                   {Qt::Key_Down, 20, end},
                                                   {Qt::Key_Up, 20, 0.0}}) {
            for (int press = 0; press < count; ++press)
                QTest::keyClick(window, key);
            EXPECT_EQ(list->property("contentY").toReal(), position);
        }
    };
    const QSize sizes[] = {{320, 300}, {320, 568}, {699, 600}, {700, 600}, {1024, 768}};
    for (int number = 0; number < 10; ++number) {
        const QSize size = sizes[number / 2];
        const bool isReduced = number % 2 == 1;
        const double textScale = isReduced ? 2 : 1;
        SCOPED_TRACE(std::to_string(size.width()) + " x " + std::to_string(size.height()) +
                     (isReduced ? " reduced, with large text" : ""));
        const QRectF whole(QPointF(), size);
        shell.setAppearance({.isMotionReduced = isReduced, .textScale = textScale});
        resize(size);
        const auto dialogArea = [&] { return dialog()->mapRectToScene(dialog()->boundingRect()); };
        const auto expectMotion = [&](const char* what, const std::function<bool()>& hasEnded) {
            EXPECT_EQ(hasEnded(), isReduced) << what;
            EXPECT_TRUE(waitFor(hasEnded)) << what;
        };

        ask("it");
        // Before the user has seen the question.
        if (!isReduced)
            accessible("shell.allow")->actionInterface()->doAction("Press");
        EXPECT_EQ(events, "");
        expectMotion("panel", [&] { return dialog()->opacity() == 1 && dialog()->scale() == 1; });
        ASSERT_TRUE(hasFocus("shell.allow"));
        EXPECT_EQ(texts().size(), 4);
        expectKeysScroll();
        EXPECT_EQ(dialogArea().width(), std::min(300 * textScale, size.width() - 32.0));
        EXPECT_LE(dialogArea().height(), size.height() - 32);
        EXPECT_LE(QLineF(dialogArea().center(), whole.center()).length(), 1);
        EXPECT_TRUE(dialogArea().contains(area("shell.dontAllow") | area("shell.allow")));
        EXPECT_FALSE(area("shell.dontAllow").intersects(area("shell.allow")));
        tap("shell.allow");
        EXPECT_TRUE(waitFor([&] { return std::exchange(events, "") == "it allowed "; }));
        EXPECT_TRUE(waitFor([&] { return !item("shell.allow")->isVisible(); }));

        shell.openSettings();
        expectMotion("sheet", [&] {
            return dialog()->opacity() == 1 && dialog()->y() == dialog()->property("restingY").toReal();
        });
        EXPECT_EQ(texts().size(), 7);
        EXPECT_TRUE(hasFocus("shell.settings.allowNotifications"));
        expectKeysScroll();
        EXPECT_TRUE(whole.adjusted(0, 44, 0, 0).contains(dialogArea()));
        EXPECT_TRUE(dialogArea().contains(area("shell.settings.done")));
        EXPECT_EQ(dialogArea().width(), size.width() < 700 ? size.width() : 540);
        if (size.width() < 700)
            EXPECT_EQ(dialogArea().bottom(), size.height());
        else
            EXPECT_LE(QLineF(dialogArea().center(), whole.center()).length(), 1);
        const QPoint button = area("shell.settings.allowNotifications").toRect().center();
        shell.settings()->close();
        QTest::mouseClick(window, Qt::LeftButton, {}, button);
        EXPECT_EQ(events, "") << "a tap on what disappears";
        expectMotion("sheet ends", [&] { return !item("shell.settings.done")->isVisible(); });

        EXPECT_TRUE(showBanner({"<b>Title</b>", "Text", {}, {}}));
        expectMotion("banner", [&] { return area("shell.banner").top() == 8; });
        const QPoint at = accessible("shell.banner")->rect().center();
        EXPECT_EQ(window->accessibleRoot()->childAt(at.x(), at.y())->role(), QAccessible::Notification);
        EXPECT_TRUE(texts().contains("<b>Title</b>"));
        EXPECT_EQ(area("shell.banner").width(), std::min(400 * textScale, size.width() - 16.0));
        EXPECT_NEAR(area("shell.banner").center().x(), whole.center().x(), 1);
        outwaitBanner();
        expectMotion("banner ends", [&] { return !item("shell.banner")->isVisible(); });
    }
    EXPECT_TRUE(waitFor([&] { return showBanner({"", "text", {}, {}}); }));
    EXPECT_EQ(accessible("shell.banner")->text(QAccessible::Name), "Quorvane MDM\ntext");
}

TEST_F(ShellTest, TextsHaveEnoughContrastAndTheScrimDarkensTheContent)
{
    QPixmap icon(64, 64);
    icon.fill(Qt::red);
    QGuiApplication::setWindowIcon(icon);
    resize({1024, 768});
    attach();
    for (const auto& [isDark, isContrastHigh] :
         {std::pair(false, false), {true, false}, {false, true}, {true, true}}) {
        SCOPED_TRACE(std::string(isDark ? "dark " : "") + (isContrastHigh ? "high" : ""));
        shell.setAppearance(
            {.isDark = isDark, .isMotionReduced = true, .textScale = 2, .isContrastHigh = isContrastHigh});
        const auto expectReadable = [&] {
            const QImage shown = window->grabWindow();
            EXPECT_NE(shown.pixelColor(2, 760), QColor(Qt::white)) << "the scrim";
            for (const QQuickItem* each : itemsBelow(window->contentItem())) {
                const QPoint center = each->mapToScene(each->boundingRect().center()).toPoint();
                const bool isMark = each->inherits("Platform::Desktop::ApplicationMark") && each->isVisible();
                EXPECT_TRUE(!isMark || shown.pixelColor(center) == QColor(Qt::red));
            }
            expectContrast(*window, isContrastHigh ? 6.5 : 4.5);
        };
        ask("it");
        ASSERT_TRUE(hasFocus("shell.allow"));
        expectReadable();
        shell.permission()->answer(true);
        openSettings();
        EXPECT_TRUE(showBanner({"title", "text", {}, {}}));
        expectReadable();
        const qreal height = item("shell.banner")->height();
        outwaitBanner();
        EXPECT_TRUE(waitFor([&] { return showBanner({"title", "", {}, {}}); }));
        window->grabWindow(); // Updates the layout.
        EXPECT_LT(item("shell.banner")->height(), height) << "an empty text needs no line";
        outwaitBanner();
        shell.settings()->close();
    }
    QGuiApplication::setWindowIcon({});
}
