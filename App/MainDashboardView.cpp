#include "App/MainDashboardView.h"

#include "Core/Logger.h"
#include "Platform/Application.h"
#include "Platform/DispatchQueue.h"
#include "PushNotifications/NotificationPermissionManager.h"

#include <utility>

namespace App {

using Core::LogCategory;
using Platform::AuthorizationStatus;

MainDashboardView::MainDashboardView(const Ports& ports) : m_ports(ports) {}

QList<FeatureCard> MainDashboardView::cards() const
{
    const auto card = [](CardType type, const QString& title, const QString& description, const char* icon) {
        return FeatureCard{title, description, QString::fromLatin1(icon), true, static_cast<int>(type)};
    };
    return {
        card(CardType::Sso, tr("Single Sign-On"), tr("Secure authentication for enterprise apps"),
             "person.badge.key"),
        card(CardType::RemoteCasting, tr("Remote Casting"), tr("Cast content to external displays"),
             "tv.and.mediabox"),
        card(CardType::Notifications, tr("Notifications"),
             tr("View and manage notifications from your organization"), "bell.badge"),
    };
}

QString MainDashboardView::destination() const
{
    const auto document = [](const char* name) {
        return QStringLiteral("qrc:/qt/qml/Quorvane/App/%1.qml").arg(QLatin1String(name));
    };
    switch (m_selectedCard) {
    case CardType::Sso:
        return document("SSODetailView");
    case CardType::RemoteCasting:
        return document("RemoteCastingView");
    case CardType::Notifications:
        return document("NotificationsView");
    case CardType::None:
        break;
    }
    return {};
}

void MainDashboardView::appear()
{
    Platform::spawn(m_ports.mainQueue, permissionStep(m_ports, m_self));
}

Platform::Task<void> MainDashboardView::permissionStep(Ports ports, WeakSelf weakSelf)
{
    auto query = ports.permissionManager.currentStatus();
    const AuthorizationStatus status = co_await std::move(query);
    bool isAllowed = status == AuthorizationStatus::authorized ||
                     status == AuthorizationStatus::provisional || status == AuthorizationStatus::ephemeral;
    bool isDenied = status == AuthorizationStatus::denied;
    if (status == AuthorizationStatus::notDetermined && !weakSelf.expired()) {
        auto request = ports.permissionManager.requestAuthorization();
        isAllowed = co_await std::move(request);
        isDenied = !isAllowed;
    }
    auto onMainQueue = Platform::resumeOn(ports.mainQueue);
    co_await onMainQueue;
    const auto self = weakSelf.lock();
    if (!self)
        co_return;
    if (isAllowed)
        ports.application.registerForRemoteNotifications();
    else if (isDenied)
        (*self)->denyNotifications();
}

void MainDashboardView::tapCard(CardType card)
{
    switch (card) {
    case CardType::Sso:
        m_ports.logger.info("SSO card tapped", "body", {.category = LogCategory::dashboard});
        break;
    case CardType::RemoteCasting:
        m_ports.logger.info("Remote Casting card tapped", "body", {.category = LogCategory::remoteCasting});
        break;
    case CardType::Notifications:
        m_ports.logger.info("Notifications card tapped", "body", {.category = LogCategory::notifications});
        break;
    case CardType::None:
        return;
    }
    select(card);
}

void MainDashboardView::goBack()
{
    select(CardType::None);
}

void MainDashboardView::openSettings()
{
    m_ports.application.open(Platform::Application::openSettingsURLString);
}

void MainDashboardView::select(CardType card)
{
    if (card == m_selectedCard)
        return;
    m_selectedCard = card;
    Q_EMIT selectedCardChanged();
}

void MainDashboardView::denyNotifications()
{
    m_notificationPermissionDenied = true;
    Q_EMIT notificationPermissionDeniedChanged();
}

} // namespace App
