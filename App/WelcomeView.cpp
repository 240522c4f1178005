#include "App/WelcomeView.h"

#include "Core/Logger.h"
#include "Platform/UserDefaults.h"

namespace App {

void WelcomeView::getStarted()
{
    m_logger.info("Welcome screen - Get Started button tapped", "body",
                  {.category = Core::LogCategory::onboarding});
    m_defaults.set(hasLaunchedBeforeKey, true);
    Q_EMIT finished();
}

} // namespace App
