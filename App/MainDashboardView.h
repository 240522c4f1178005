#pragma once

#include "App/FeatureCard.h"

#include "Platform/Task.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <memory>

namespace Core {
class Logger;
}
namespace Platform {
class Application;
class DispatchQueue;
} // namespace Platform
namespace PushNotifications {
class NotificationPermissionManager;
}

namespace App {

/// The dashboard: three cards that open detail screens, and a warning if notifications are denied. When it
/// appears, it requests the permission if undecided, and registers for remote notifications if granted.
///
/// Threads: main. Ownership: the ports must outlive the permission step; destruction cancels that step.
class MainDashboardView final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(MainDashboardViewModel)
    QML_UNCREATABLE("created by ContentView")
    Q_PROPERTY(QList<App::FeatureCard> cards READ cards CONSTANT FINAL)
    Q_PROPERTY(CardType selectedCard READ selectedCard NOTIFY selectedCardChanged FINAL)
    /// URL of the detail screen's QML file; empty while the dashboard is shown.
    Q_PROPERTY(QString destination READ destination NOTIFY selectedCardChanged FINAL)
    Q_PROPERTY(bool notificationPermissionDenied READ notificationPermissionDenied NOTIFY
                   notificationPermissionDeniedChanged FINAL)

public:
    /// `None` means the dashboard.
    enum class CardType { None, Sso, RemoteCasting, Notifications };
    Q_ENUM(CardType)

    struct Ports {
        Core::Logger& logger;
        PushNotifications::NotificationPermissionManager& permissionManager;
        Platform::Application& application;
        Platform::DispatchQueue& mainQueue;
    };

    explicit MainDashboardView(const Ports& ports);

    [[nodiscard]] QList<FeatureCard> cards() const;
    /// The card whose detail screen is shown.
    [[nodiscard]] CardType selectedCard() const { return m_selectedCard; }
    [[nodiscard]] QString destination() const;
    /// Once true, never becomes false again.
    [[nodiscard]] bool notificationPermissionDenied() const { return m_notificationPermissionDenied; }

    /// Called when the dashboard appears; starts the permission step.
    Q_INVOKABLE void appear();
    Q_INVOKABLE void tapCard(App::MainDashboardView::CardType card);
    /// Returns to the dashboard.
    Q_INVOKABLE void goBack();
    Q_INVOKABLE void openSettings();

Q_SIGNALS:
    void selectedCardChanged();
    void notificationPermissionDeniedChanged();

private:
    /// Expired after the view's destruction.
    using WeakSelf = std::weak_ptr<MainDashboardView* const>;

    static Platform::Task<void> permissionStep(Ports ports, WeakSelf weakSelf);
    void select(CardType card);
    void denyNotifications();

    const Ports m_ports;
    CardType m_selectedCard = CardType::None;
    bool m_notificationPermissionDenied = false;
    std::shared_ptr<MainDashboardView* const> m_self = std::make_shared<MainDashboardView* const>(this);
};

} // namespace App
