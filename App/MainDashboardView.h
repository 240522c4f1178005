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

/// The home screen: three cards, each of which opens a detail screen, and a strip that tells when
/// notifications are off. When it comes on screen it asks for permission where that is open, and registers
/// for remote notifications where it is given.
///
/// Threads: main. Ownership: refers to its ports; its end cancels the permission step.
class MainDashboardView final : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(MainDashboardViewModel)
    QML_UNCREATABLE("made by ContentView")
    Q_PROPERTY(QList<App::FeatureCard> cards READ cards CONSTANT FINAL)
    Q_PROPERTY(CardType selectedCard READ selectedCard NOTIFY selectedCardChanged FINAL)
    /// The document of the detail screen on view; empty for none.
    Q_PROPERTY(QString destination READ destination NOTIFY selectedCardChanged FINAL)
    Q_PROPERTY(bool notificationPermissionDenied READ notificationPermissionDenied NOTIFY
                   notificationPermissionDeniedChanged FINAL)

public:
    /// `None` is the dashboard itself.
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
    /// The card whose detail screen is on view.
    [[nodiscard]] CardType selectedCard() const { return m_selectedCard; }
    [[nodiscard]] QString destination() const;
    /// Never false again once it is true.
    [[nodiscard]] bool notificationPermissionDenied() const { return m_notificationPermissionDenied; }

    /// The dashboard came on screen: starts the permission step.
    Q_INVOKABLE void appear();
    Q_INVOKABLE void tapCard(App::MainDashboardView::CardType card);
    /// The detail screen was left.
    Q_INVOKABLE void goBack();
    Q_INVOKABLE void openSettings();

Q_SIGNALS:
    void selectedCardChanged();
    void notificationPermissionDeniedChanged();

private:
    /// Empty once the view has gone.
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
