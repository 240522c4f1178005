#include "App/SSODetailView.h"

namespace App {

SSODetailView::SSODetailView(QObject* parent)
    : FeatureDetail(
          "person.badge.key", tr("Single Sign-On"),
          tr("Secure authentication for enterprise apps. Sign-in is handled by the Quorvane SSO extension "
             "when managed apps request authentication."),
          parent)
{}

} // namespace App
