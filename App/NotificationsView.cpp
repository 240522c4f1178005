#include "App/NotificationsView.h"

namespace App {

NotificationsView::NotificationsView(QObject* parent)
    : FeatureDetail("bell.badge", tr("Notifications"),
                    tr("View and manage notifications from your organization. Coming soon."), parent)
{}

} // namespace App
