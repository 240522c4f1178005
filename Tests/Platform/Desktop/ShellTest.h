#pragma once

#include "Platform/Desktop/Shell/Shell.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Platform/Desktop/WindowChecks.h"

#include <QGuiApplication>
#include <QQmlApplicationEngine>

using namespace Platform;

/// A shell in a small window with large text, above content that has the focus and counts its input events.
class ShellTest : public testing::Test, protected NotificationPreferences {
protected:
    ShellTest()
    {
        makeWindow();
        shell.setAppearance({.isMotionReduced = true, .textScale = 2});
    }
    void makeWindow()
    {
        engine.loadData(R"(import QtQuick
            Window {
                width: 320; height: 568; visible: true; title: 'app'
                Item {
                    objectName: 'content'; anchors.fill: parent; focus: true
                    property int count; property int shortcutCount; property alias isHovered: hover.hovered
                    Accessible.role: Accessible.Button; Accessible.name: 'content'
                    HoverHandler { id: hover } TapHandler { onTapped: ++count }
                    Shortcut { sequences: ['Esc', 'Ctrl+S']; onActivated: ++parent.shortcutCount }
                    MouseArea { anchors.fill: parent; acceptedButtons: Qt.NoButton; onWheel: ++parent.count }
                    Keys.onPressed: ++count
                    Item { objectName: 'inner' }
                }
                FocusScope { objectName: 'scope' }
            })");
        window = qobject_cast<QQuickWindow*>(engine.rootObjects().last());
        EXPECT_TRUE(QTest::qWaitForWindowActive(window));
    }
    void resize(QSize size)
    {
        window->resize(size);
        EXPECT_TRUE(waitFor([&] { return window->contentItem()->size() == size; }));
    }
    void attach() { shell.attach(engine, *window); }
    void openSettings()
    {
        shell.openSettings();
        EXPECT_TRUE(hasFocus("shell.settings.allowNotifications"));
    }
    void ask(const std::string& question)
    {
        shell.requestPermission([=, this](bool isGranted) {
            EXPECT_FALSE(shell.permission()->isActive());
            events += question + (isGranted ? " allowed " : " refused ");
        });
    }
    bool showBanner(const UserNotification& notification, unsigned options = PresentationOptions::banner,
                    std::function<void()> onResponse = {})
    {
        bool isOnView = false;
        const auto completion = [&](bool isShown) { isOnView = isShown; };
        shell.show(notification, options, completion, std::move(onResponse));
        return isOnView;
    }
    /// Lets the time pass after which a banner disappears.
    void outwaitBanner() { clock.advance(Desktop::NotificationBanner::viewTime); }
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
    [[nodiscard]] std::string notificationServer() const override { return server; }
    [[nodiscard]] std::string pushSource() const override { return "UnifiedPush (org.example.Push)"; }

    QQuickItem* item(const char* name) { return window->findChild<QQuickItem*>(name); }
    /// Returns a property of the content: "count", "shortcutCount" or "isHovered".
    QVariant content(const char* property) { return item("content")->property(property); }
    /// Returns the item's rectangle in the window.
    QRectF area(const char* name) { return item(name)->mapRectToScene(item(name)->boundingRect()); }
    bool hasFocus(const char* name)
    {
        return waitFor([&] { return item(name) != nullptr && item(name)->hasActiveFocus(); });
    }
    void tap(const char* name)
    {
        const QRect place = area(name).toRect();
        EXPECT_TRUE(QRect(QPoint(), window->size()).contains(place) && place.height() >= 44) << name;
        QTest::mouseClick(window, Qt::LeftButton, {}, place.center());
    }
    /// Returns the visible strings after checking that they can be read.
    QStringList texts()
    {
        window->grabWindow(); // Updates the layout.
        QStringList all;
        for (const QQuickItem* each : visibleTexts(*window)) {
            expectWhole(each);
            all += each->property("text").toString();
        }
        return all;
    }
    /// Returns the open dialog.
    QQuickItem* dialog()
    {
        const QAccessibleInterface* const first = window->accessibleRoot()->child(0);
        return first != nullptr && first->role() == QAccessible::Dialog
                   ? qobject_cast<QQuickItem*>(first->object())
                   : nullptr;
    }
    QAccessibleInterface* accessible(const char* name)
    {
        return QAccessible::queryAccessibleInterface(item(name));
    }

    const std::unique_ptr<QPointingDevice> finger{QTest::createTouchDevice()};
    std::string events;
    std::string server;
    AuthorizationStatus status = AuthorizationStatus::notDetermined;
    ManualScheduler clock;
    QQmlApplicationEngine engine;
    QQuickWindow* window = nullptr;
    Desktop::Shell shell{{*this, clock}, "Quorvane MDM"};
};
