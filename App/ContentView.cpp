#include "App/ContentView.h"

#include "Platform/UserDefaults.h"

namespace App {

ContentView::ContentView(const Ports& ports)
    : m_ports(ports), m_showWelcome(!ports.defaults.boolean(WelcomeView::hasLaunchedBeforeKey))
{
    if (m_showWelcome) {
        m_welcome = std::make_unique<WelcomeView>(ports.logger, ports.defaults);
        connect(m_welcome.get(), &WelcomeView::finished, this, [this] { setShowWelcome(false); });
    } else {
        setShowWelcome(false);
    }
}

void ContentView::setShowWelcome(bool showWelcome)
{
    m_showWelcome = showWelcome;
    if (!m_dashboard)
        m_dashboard = std::make_unique<MainDashboardView>(MainDashboardView::Ports{
            m_ports.logger, m_ports.permissionManager, m_ports.application, m_ports.mainQueue});
    Q_EMIT showWelcomeChanged();
}

} // namespace App
