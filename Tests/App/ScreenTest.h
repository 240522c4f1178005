#pragma once

#include "App/AppearanceModel.h"
#include "App/ContentView.h"
#include "App/PresentationMode.h"
#include "Core/Logger.h"
#include "PushNotifications/NotificationPermissionManager.h"
#include "Tests/Fakes/FakeApplication.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/FakeUserNotificationCenter.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Platform/Desktop/WindowChecks.h"

#include <QAccessible>
#include <QAnimationDriver>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQmlProperty>
#include <QQuickView>
#include <gmock/gmock.h>

using namespace App;
using namespace Platform;
using namespace testing;
using Card = MainDashboardView::CardType;

/// Advances animations, and the pauses in them, only when the test calls `pass()`.
class ManualAnimations final : public QAnimationDriver {
public:
    ManualAnimations()
    {
        install();
        // While no animation runs, or only pauses, Qt uses real time.
        QQmlComponent component(&m_engine);
        component.setData("import QtQuick; QtObject { property real clock; NumberAnimation on clock {"
                          "from: 0; to: 1; duration: 1000; loops: Animation.Infinite } }",
                          {});
        m_endless.reset(component.create());
        QCoreApplication::processEvents();
    }
    void pass(qint64 milliseconds)
    {
        QCoreApplication::processEvents(); // Animations start and end in the event loop.
        m_elapsed += milliseconds;
        advance();
        QCoreApplication::processEvents();
    }
    [[nodiscard]] qint64 elapsed() const override { return m_elapsed; }

private:
    qint64 m_elapsed = 0;
    QQmlEngine m_engine;
    std::unique_ptr<QObject> m_endless;
};

/// Returns an item's font, colors, border and shadow, without those that are zero or transparent.
inline std::string look(const QQuickItem* item)
{
    // The word in front of a property's name is also in front of its value.
    const QString properties =
        "size font.pixelSize, weight font.weight, color, to endColor, gradientDirection, "
        "radius radius, border borderWidth, borderColor, shadow shadow.color, blur shadow.blurRadius, "
        "down shadow.offset.y";
    QStringList words;
    for (const QString& each : properties.split(", ")) {
        const QString property = each.section(' ', -1);
        const QVariant value = QQmlProperty::read(item, property);
        const auto color = value.value<QColor>();
        if (value.typeId() == QMetaType::QColor ? color.isValid() && color.alpha() > 0 : value.toReal() > 0)
            words += property == "radius" && 2 * value.toReal() >= item->width()
                         ? "round"
                         : each.chopped(property.size()) + value.toString();
    }
    return qPrintable(words.join(", "));
}

/// The screens of the app; `detail` is that of the first card.
enum class Screen { welcome, dashboard, detail };
static constexpr Screen allScreens[] = {Screen::welcome, Screen::dashboard, Screen::detail};

/// Runs the real screens in a window, on fakes.
class ScreenTest : public Test {
protected:
    ~ScreenTest() override
    {
        window.setSource({});
        window.releaseResources();
        content.reset();
        // Completes pending tasks.
        scheduler.runUntilIdle();
    }

    void open(Screen screen, QSize size = {390, 844})
    {
        // Nothing is stored at the first launch.
        if (const bool isSecond = screen != Screen::welcome;
            domains.standard().boolean("hasLaunchedBefore") != isSecond)
            domains.standard().set("hasLaunchedBefore", isSecond);
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
        if (screen == Screen::detail)
            openCard(Card::Sso);
    }
    void openCard(Card card)
    {
        content->dashboard()->tapCard(card);
        settle();
    }
    /// Finishes queued work and running animations, and updates the layout.
    void settle()
    {
        scheduler.runUntilIdle();
        for (int turn = 0; turn < 4; ++turn)
            animations.pass(250);
        window.grabWindow();
    }
    /// Returns the first visible item in `parent` with this object name, text, symbol or class; null if none.
    [[nodiscard]] QQuickItem* item(const QString& name, const QQuickItem* parent = nullptr) const
    {
        for (QQuickItem* each : itemsBelow(parent != nullptr ? parent : window.contentItem())) {
            const auto is = [&](const char* property) { return each->property(property) == name; };
            if (each->isVisible() &&
                (is("objectName") || is("text") || is("name") || each->inherits(qPrintable(name))))
                return each;
        }
        return nullptr;
    }
    /// Whether there is an item with this object name, visible or not.
    [[nodiscard]] bool isLoaded(const QString& name) const
    {
        return std::ranges::any_of(itemsBelow(window.contentItem()),
                                   [&](const QQuickItem* each) { return each->objectName() == name; });
    }
    /// Returns the item's rectangle in the window, without horizontal padding.
    [[nodiscard]] static QRectF area(const QQuickItem* found)
    {
        const qreal padding = found->property("sidePadding").toReal();
        return found->mapRectToScene({padding, 0, found->width() - 2 * padding, found->height()});
    }
    void tap(const QString& name)
    {
        const QQuickItem* target = item(name);
        ASSERT_TRUE(target != nullptr) << qPrintable(name);
        QTest::mouseClick(&window, Qt::LeftButton, {}, area(target).center().toPoint());
    }

    ManualAnimations animations;
    ManualScheduler scheduler;
    RecordingUnifiedLog log;
    Core::Logger logger{std::make_unique<Core::OSLogSink>(log), "com.example"};
    NotificationCenter notifications;
    FakeUserDefaultsDomains domains{notifications, scheduler.mainQueue};
    FakeUserNotificationCenter center{scheduler.utilityQueue};
    PushNotifications::NotificationPermissionManager manager{center, logger};
    FakeApplication application;
    const ContentView::Ports ports{logger, domains.standard(), manager, application, scheduler.mainQueue};
    AppearanceModel appearance;
    std::unique_ptr<ContentView> content;
    QQuickView window;
};
